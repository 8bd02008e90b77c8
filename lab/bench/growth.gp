# Plots the results of storage_growth: gnuplot -e "data='...'; plot_file='...'" lab/bench/growth.gp
set terminal svg size 1000,520 font "sans-serif,12" background rgb "white"
set output plot_file
set logscale xy
set format x "%.0s%c"
set xlabel "documents"
set ylabel "milliseconds per operation (best of 11)"
set yrange [0.01:1000]
set grid
set key bottom right samplen 2
ten = "10 ms"
set multiplot layout 1,2
set title "one owner, over 101 hash buckets"
set xrange [1000:1000000]
plot for [i=0:5] data index i using 1:2 with linespoints lw 1.5 pt 7 ps 0.5 title word(columnheader(1), 2), \
  10 with lines dt 2 lc rgb "gray40" title ten
set title "one mail folder"
set xrange [100:100000]
plot for [i=6:11] data index i using 1:2 with linespoints lw 1.5 pt 7 ps 0.5 title word(columnheader(1), 2), \
  10 with lines dt 2 lc rgb "gray40" title ten
unset multiplot
