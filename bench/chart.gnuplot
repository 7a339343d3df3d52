# The cost over occupancy, of the library (lines) and of the same calls by hand (broad bands): gnuplot -e "times='FILE'"
set terminal svg size 900,420 font "sans-serif,12" background "white"
set datafile separator tab
set title "Library (lines) and the same calls by hand (bands)"
set xlabel "occupancy of the table"
set xtics ("empty" 0, "¼" 1, "half" 2, "¾" 3, "full" 4)
set ylabel "ns a call"
set yrange [0:*]
set grid ytics
set key outside right
array names[5] = ["L2TP session add + removal", "L2TP connection add", "UDP add + release IPv6", "UDP add + release", \
                  "L2TP connection add (sharing)"]
cost(name, c) = strcol(1) eq name ? column(c) : NaN
plot for [i=1:5] times using 2:(cost(names[i], 4)) with lines lw 8 lc rgb "#d0d0d0" notitle, \
     for [i=1:5] times using 2:(cost(names[i], 3)) with linespoints lw 2 pt 7 ps 0.5 lc i title names[i]
