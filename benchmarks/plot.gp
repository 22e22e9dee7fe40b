# Called with the variables data and picture: throughput in multiples of curl's, a group for each
# case and a bar for each participant.

set terminal pngcairo size 1400,560 font "sans,11" background "white"
set output picture
set style data histogram
set style histogram clustered gap 1.5
set style fill solid 0.9 border rgb "white"
set boxwidth 0.95
set ylabel "Throughput, curl = 1"
set yrange [0:2]
set grid ytics linecolor rgb "#dddddd"
set xtics rotate by -20 scale 0
set key outside top right horizontal
set rmargin 8
set arrow from graph 0, first 1 to graph 1, first 1 nohead linecolor rgb "#555555" dashtype 2 front
colours = "#c0392b #1b6ca8 #7fb3d5 #7d6608 #d4ac0d #b2babb #a569bd"
plot for [i = 2:8] data using i:xtic(1) title columnheader(i) \
    linecolor rgb word(colours, i - 1)
