# After results.awk: an SVG chart of cost over occupancy, readable on light and on dark ground.
function x(panel, quarters) { return 70 + 480 * panel + quarters * 85 }
function y(share) { return 270 - 210 * share }

function text(at_x, at_y, anchor, content) {
    printf "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"%s\">%s</text>\n", at_x, at_y, anchor, content
}

function grid_line(panel, share, label) {
    printf "<path class=\"grid\" d=\"M%.1f %.1fH%.1f\"/>\n", x(panel, 0), y(share), x(panel, 4)
    text(x(panel, 0) - 8, y(share) + 4, "end", label)
}

function panel_frame(panel, title, unit,    quarters) {
    split("empty ¼ half ¾ full", names, " ")
    printf "<text class=\"title\" x=\"%.1f\" y=\"24\">%s</text>\n", x(panel, 0), title
    text(x(panel, 0) - 8, 46, "end", unit)
    for (quarters = 0; quarters <= 4; ++quarters) text(x(panel, quarters), y(0) + 20, "middle", names[quarters + 1])
}

# `logarithmic`: from 1 ns to 1 ms; otherwise from 0 to `most`.
function height(ns, logarithmic, most) { return y(logarithmic ? log(ns < 1 ? 1 : ns) / log(1000000) : ns / most) }

function curve(panel, class, what, row, logarithmic, most,    quarters, path) {
    for (quarters = 0; quarters <= 4; ++quarters)
        path = path sprintf("%s%.1f %.1f", quarters ? "L" : "M", x(panel, quarters),
                            height(measured(what, row, quarters), logarithmic, most))
    printf "<path class=\"curve %s\" d=\"%s\"/>\n", class, path
}

# Above the curve, from a quarter on.
function caption(panel, class, row, quarters, logarithmic, most, content) {
    printf "<text class=\"%s\" x=\"%.1f\" y=\"%.1f\">%s</text>\n", class, x(panel, quarters) + 8,
           height(measured("none", row, quarters), logarithmic, most) - 10, content
}

function pair(class, row, most) {
    curve(0, class " by-hand", "reference", row, 0, most)
    curve(0, class, "none", row, 0, most)
    caption(0, class, row, 0, 0, most, row)
}

END {
    print "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 930 330\""
    print "    font-family=\"sans-serif\" font-size=\"12\">"
    print "<style>"
    print "text { fill: #444 } .title { font-size: 14px; font-weight: bold } .grid { stroke: #8884; fill: none }"
    print ".curve { fill: none; stroke-width: 2 } .by-hand { stroke-width: 5; stroke-opacity: .35 }"
    print ".udp { stroke: #2878c8 } .l2tp { stroke: #c8641e } text.udp, text.l2tp { stroke: none }"
    print "text.udp { fill: #2878c8 } text.l2tp { fill: #c8641e }"
    print "@media (prefers-color-scheme: dark) { text { fill: #ccc }"
    print "  .udp { stroke: #6cb0f5 } .l2tp { stroke: #f0a060 }"
    print "  text.udp { fill: #6cb0f5 } text.l2tp { fill: #f0a060 } }"
    print "</style>"

    most = 50
    while (most < 1.15 * worst("none", "L2TP session add + removal")) most += 50
    panel_frame(0, "Sessions: library (thin) over the same by hand (broad)", "ns")
    for (ns = 0; ns <= most; ns += 50) grid_line(0, ns / most, ns)
    pair("udp", "UDP add + release", most)
    pair("l2tp", "L2TP session add + removal", most)

    panel_frame(1, "The lowest free id of 70,000", "")
    split("1 ns,10 ns,100 ns,1 µs,10 µs,100 µs,1 ms", powers, ",")
    for (power = 0; power <= 6; ++power) grid_line(1, power / 6, powers[power + 1])
    search = "ascending search for it (not the library)"
    curve(1, "l2tp", "none", search, 1)
    caption(1, "l2tp", search, 2, 1, 0, "ascending search")
    curve(1, "udp", "none", "lowest free id", 1)
    caption(1, "udp", "lowest free id", 2, 1, 0, "library")
    text(x(0, 2), 320, "middle", "occupancy of the table, in sessions")
    text(x(1, 2), 320, "middle", "occupancy of the table, in sessions")
    print "</svg>"
}
