# Prints from the headers' comments, by operation and result, what an operation leaves when a call in it fails. Results
# whose comment says "nothing was done" are left out.

# The result before this line is complete.
function keep() {
    if (code != "" && (code == "0" ? text ~ /fail/ : text !~ /nothing was done/))
        results[++count] = sprintf("%-5s %s", code, text)
    code = ""
}
/^\/\*\*/ { count = 0 }
/^ \*\/?$/ || / \* @/ { keep() }
/ \* @retval/ { code = $3; text = ""; $1 = $2 = $3 = "" }
code != "" { sub(/^ *\*? */, ""); text = text (text == "" ? "" : " ") $0 }
match($0, /[a-z0-9_]+_(add|rem|modify[a-z_]*|disconnect|release|part)\(/) && /^[Zz]/ {
    if (count)
        print (shown++ ? "\n" : "") substr($0, RSTART, RLENGTH - 1)
    for (i = 1; i <= count; i++)
        print "    " results[i]
    count = 0
}
