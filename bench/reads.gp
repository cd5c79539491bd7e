# Draws what a read costs, for scripts/plot: on the left the times, on the right the same beside the
# engine used directly, with what they may be at most as dashed lines.
#
# folder      where times.dat and ratios.dat are: a line for each number of nodes, "?" where nothing
#             was measured
# picture     the SVG to write

set terminal svg size 960,470 font "sans-serif,13" background "white" linewidth 1.5 noenhanced
set output picture
set datafile missing "?"
set multiplot layout 1,2 columnsfirst margins 0.075,0.985,0.30,0.93 spacing 0.09,0

set style line 1 lc rgb "#1b6ca8" pt 7 ps 0.7 lw 1.6
set style line 2 lc rgb "#555555" pt 5 ps 0.6 lw 1
set style line 3 lc rgb "#2e8b57" pt 9 ps 0.7 lw 1
set style line 4 lc rgb "#8e44ad" pt 11 ps 0.7 lw 1
set style line 5 lc rgb "#d68910" pt 13 ps 0.8 lw 1
set style line 6 lc rgb "#c0392b" pt 9 ps 0.7 lw 1.2
set style line 7 lc rgb "#16a085" pt 13 ps 0.8 lw 1.2
set border 3 lc rgb "#888888"
set grid xtics ytics lc rgb "#dddddd" lt 1 lw 0.7
set tics nomirror textcolor rgb "#333333"
set logscale x
set xrange [700:1450000]
set xtics ("1 k" 1000, "10 k" 10000, "100 k" 100000, "1 M" 1000000)
set xlabel "nodes in the database" offset 0,0.4
set key left top vertical maxrows 3 Left reverse samplen 2.5 spacing 1.2

set title "time of one read of any node" offset 0,-0.5
set logscale y
set yrange [*<70:120000<*]
set key at screen 0.06,0.165
set ytics ("100 ns" 100, "1 µs" 1000, "10 µs" 10000, "100 µs" 100000)
plot folder."/times.dat" using 1:2 with linespoints ls 1 title "qim_node_read", \
     "" using 1:3 with linespoints ls 2 title "engine get + copy", \
     "" using 1:4 with linespoints ls 3 title "SQLite, in a transaction", \
     "" using 1:5 with linespoints ls 4 title "SQLite, autocommit", \
     "" using 1:6 with linespoints ls 5 title "Redis GET, Unix socket"

set title "qim_node_read / engine get + copy" offset 0,-0.5
unset logscale y
set yrange [0:2.8<*]
set key at screen 0.57,0.165
set ytics 0.5
set format y "%.1f"
plot folder."/ratios.dat" using 1:2 with linespoints ls 6 title "a filter with 4 criteria", \
     "" using 1:4 with linespoints ls 1 title "any node", \
     "" using 1:6 with linespoints ls 7 title "hot: always the same 1 k", \
     "" using 1:3 with linespoints ls 6 dt 2 pt 1 ps 0.9 title "at most (goal)", \
     "" using 1:5 with linespoints ls 1 dt 2 pt 1 ps 0.9 title "at most (goal)", \
     "" using 1:7 with linespoints ls 7 dt 2 pt 1 ps 0.9 title "at most (goal)"
unset multiplot
