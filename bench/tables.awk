# After results.awk: with part=targets the targets and what was measured, with part=operations all operations.
function time_text(ns) {
    if (ns < 9.95) return sprintf("%.1f ns", ns)
    if (ns < 9999.5) return sprintf("%.0f ns", ns)
    if (ns < 999500) return sprintf("%.0f µs", ns / 1000)
    return sprintf("%.2f ms", ns / 1000000)
}

# A cell of a table. mawk counts bytes, of which the µ has two.
function cell(text, width) {
    while (length(text) - gsub(/µ/, "µ", text) < width) text = text " "
    return "| " text " "
}

function target(text, is_met, found) {
    print cell(text, 80) cell(is_met ? "met" : "NOT MET", 8) cell(found, 0) "|"
}

function ratio_target(row,    most) {
    most = worst("ratio", row)
    target(row " at most 1.25 times the same by hand" (most <= 1.1 ? ", and at most 1.10" : ""), most <= 1.25,
           sprintf("%.3f at the worst occupancy, %s over the processes", most, range_text(row)))
}

function start_target(text, us) { target("start " text " at most 0.3 ms", us <= 300, time_text(us * 1000)) }

function number_text(what, row, quarters) {
    if (!((what, row, quarters) in values)) return ""
    if (what == "ratio") return sprintf("%.2f", measured(what, row, quarters))
    return time_text(measured(what, row, quarters))
}

function at_each(what, row, width) {
    return cell(number_text(what, row, 0), width + 8 * (what == "ratio")) \
        cell(number_text(what, row, 2), width) cell(number_text(what, row, 4), width)
}

function at_middle(what, row) { return cell(number_text(what, row, highest_quarter[row] > 0 ? 2 : 0), 8) }

# Of the ratio, over the processes and the occupancies.
function range_text(row,    quarters, least, most) {
    if (!(("ratio", row, 0) in values)) return ""
    for (quarters = 0; quarters <= highest_quarter[row]; ++quarters) {
        measured("ratio", row, quarters)
        if (least == 0 || lowest < least) least = lowest
        if (highest > most) most = highest
    }
    return sprintf("%.2f to %.2f", least, most)
}

END {
    if (part == "targets") print_targets()
    else print_operations()
}

function print_targets(    free_id, fill) {
    free_id = "lowest free id"
    fill = measured("ratio", "fill of 70000 sessions (beside the adds alone)", 0)

    print cell("Target", 80) cell("", 8) "| Measured |"
    print "| --- | --- | --- |"
    ratio_target("UDP add + release")
    ratio_target("UDP add + release IPv6")
    ratio_target("L2TP session add + removal")
    target("lowest free id at most 10 ns at any occupancy", worst("none", free_id) <= 10,
           time_text(measured("none", free_id, 0)) ", " time_text(measured("none", free_id, 2)) " and " \
           time_text(measured("none", free_id, 4)) " with 0, 35,000 and 69,999 sessions; a call of " \
           "an empty function takes " time_text(measured("none", "place for a breakpoint", 0)))
    target("filling 70,000 sessions at most 1.3 times the adds alone", fill <= 1.3, sprintf("%.3f", fill))
    print cell("the first fill of a fresh process beside a later one", 80) cell("", 8) \
        cell(sprintf("%.2f", fresh("first fill us") / fresh("second fill us")), 0) "|"
    start_target("of a fresh process", fresh("first start us"))
    start_target("over an empty table", measured("none", "start", 0) / 1000)
    start_target("over a full table", measured("none", "start", 4) / 1000)
    target("tables of at most 6.5 MiB", fresh("table bytes") <= 6.5 * 1048576,
           sprintf("%.2f MiB", fresh("table bytes") / 1048576))
    target("touched only where sessions are: at most 256 KiB with 1,000 of them",
           fresh("resident bytes with 1000 sessions") < 262144,
           sprintf("%.0f KiB in memory after the first start, %.0f KiB with 1,000 sessions",
                   fresh("resident bytes after the first start") / 1024,
                   fresh("resident bytes with 1000 sessions") / 1024))
}

function print_operations(    i) {
    print cell("Operation", 46) "| empty   | half    | full    | by hand  | ratio: empty | half | full " \
        "| range        | probes   | LTTng    |"
    print "| --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |"
    for (i = 1; i <= row_count; ++i)
        print cell(rows[i], 46) at_each("none", rows[i], 7) at_middle("reference", rows[i]) \
            at_each("ratio", rows[i], 4) cell(range_text(rows[i]), 12) \
            at_middle("probes", rows[i]) at_middle("session", rows[i]) "|"
}
