# Draws throughput and memory against the size of a file, into the file output. The file sizes has a line for each: MiB,
# MB/s of a session and of the bare loop, MiB of peak memory.
set terminal svg size 800,420 font 'sans-serif,13' background 'white'
set output output
set datafile missing '?'
set logscale x 4
set format x '%g'
set xlabel 'size of the file, MiB'
set ylabel 'MB/s'
set y2label 'MiB of memory at the most'
set yrange [0:*]
set y2range [0:16]
set ytics nomirror
set y2tics
set key bottom right
set grid
plot sizes using 1:2 with linespoints linewidth 2 title 'session, MB/s', \
     sizes using 1:3 with linespoints linewidth 2 dashtype 2 title 'bare loop, MB/s', \
     sizes using 1:4 axes x1y2 with linespoints linewidth 2 title 'session, memory'
