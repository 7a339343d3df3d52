# Reads what zel-bench (CSV) and zel-bench-fresh (tab-separated) wrote, a file a process: none.*, probes.*, session.*
# and fresh.*. The programs after it find medians over the processes.
BEGIN { FS = "," }
FNR == 1 { kind = FILENAME; sub(/.*\//, "", kind); sub(/\..*/, "", kind) }

kind == "fresh" { split($0, fact, "\t"); values["fresh", fact[1]] = values["fresh", fact[1]] " " fact[2] }

/^"/ { # "OPERATION/OUTCOME/QUARTERS/...",...,MEDIAN,RATIO,REFERENCE
    split(substr($1, 2), name, "/")
    row = name[1] (name[2] == "failure" ? ", failing" : "")
    if (!(row in highest_quarter)) rows[++row_count] = row
    if (name[3] >= highest_quarter[row]) highest_quarter[row] = name[3]
    values[kind, row, name[3]] = values[kind, row, name[3]] " " $11
    if ($13 > 0) {
        values["ratio", row, name[3]] = values["ratio", row, name[3]] (kind == "none" ? " " $12 : "")
        values["reference", row, name[3]] = values["reference", row, name[3]] (kind == "none" ? " " $13 : "")
    }
}

# The median of a list, and in `lowest` and `highest` its ends.
function median(list,    sorted, count, i, j, value) {
    count = split(list, sorted, " ")
    for (i = 2; i <= count; ++i) {
        value = sorted[i] + 0
        for (j = i - 1; j > 0 && sorted[j] + 0 > value; --j) sorted[j + 1] = sorted[j]
        sorted[j + 1] = value
    }
    lowest = sorted[1] + 0
    highest = sorted[count] + 0
    return sorted[int((count + 1) / 2)] + 0
}

function measured(what, row, quarters) { return median(values[what, row, quarters]) }

# The highest of an operation's medians over the occupancies.
function worst(what, row,    quarters, most) {
    for (quarters = 0; quarters <= highest_quarter[row]; ++quarters)
        if (measured(what, row, quarters) > most) most = measured(what, row, quarters)
    return most
}

function fresh(fact) { return median(values["fresh", fact]) }
