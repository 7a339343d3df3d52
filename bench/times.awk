# Makes a table of: name, quarters, nanoseconds, those of the reference, ratio, its least and its greatest.
function time_text(ns) {
    if (ns < 9.95) return sprintf("%.1f ns", ns)
    if (ns < 9999.5) return sprintf("%.0f ns", ns)
    return sprintf("%.3f ms", ns / 1e6)
}

function within(value, limit, text) { return text ": " (value <= limit ? "met" : "NOT MET") }

function target() {
    if ($1 ~ /^(UDP add \+ release( IPv6)?|L2TP session add \+ removal)$/) return within($5, 1.25, "1.25 times")
    if ($1 ~ /^L2TP connection/) return within($5, 1.15, "1.15 times")
    if ($1 ~ /^UDP.*all over/) return within($5, 1.25, "1.25 times")
    if ($1 ~ /bare events/) return within($5, 1.5, "1.5 times")
    if ($1 ~ /^fill of/) return within($5, 1.3, "1.3 times")
    if ($1 == "lowest free id") return within($3, 10, "10 ns")
    if ($1 ~ /^start/) return within($3, 300000, "0.3 ms")
}

function line(name, occupancy, ns, reference, ratio, range, limit) {
    row = sprintf("%-48s %-5s  %9s  %9s  %5s  %-12s  %s", name, occupancy, ns, reference, ratio, range, limit)
    sub(/ +$/, "", row)
    print row
}

BEGIN {
    FS = "\t"
    split("empty half full", occupancies, " ")
    line("operation", "table", "library", "beside it", "ratio", "range", "at most")
}
$2 % 2 == 0 {
    if ($4 > 0)
        line($1, occupancies[$2 / 2 + 1], time_text($3), time_text($4), sprintf("%.2f", $5),
             sprintf("%.2f to %.2f", $6, $7), target())
    else line($1, occupancies[$2 / 2 + 1], time_text($3), "", "", "", target())
}
