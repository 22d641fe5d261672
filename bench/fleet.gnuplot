# Draws one picture of docs/fleet.md from the file points into the file output: day, outage, hosts or check.
set terminal svg size 800,420 font 'sans-serif,13' background 'white'
set output output
set grid
set key top right
if (picture eq 'day') {
  set xlabel 'hours since all were switched on'
  set ylabel 'knocks a second'
  set logscale y
  set yrange [0.01:1000]
  set xrange [0:24]
  set xtics 3
  plot points index 1 with impulses linecolor 'orange' title 'all in step', \
       points index 0 with lines linewidth 2 linecolor 'blue' title 'first runs spread'
}
if (picture eq 'outage') {
  set xlabel 'minutes since the host is back'
  set ylabel 'chassis that wait'
  set xrange [0:40]
  set yrange [0:chassis]
  set key at graph 0.98, 0.9
  plot points index 0 with lines linewidth 2 title 'first runs spread, a tenth more or less', \
       points index 1 with lines linewidth 2 title 'no tenth', \
       points index 2 with lines linewidth 2 title 'waits that double', \
       points index 3 with lines linewidth 2 title 'all in step, a tenth more or less', \
       points index 4 with lines linewidth 2 title 'all in step, no tenth'
}
if (picture eq 'hosts') {
  set xlabel 'chassis on one host'
  set ylabel 'minutes until 99 of 100 are back'
  set logscale x 2
  set xtics (2500, 5000, 10000, 20000, 40000)
  set yrange [0:*]
  set key top left
  plot points index 0 with linespoints linewidth 2 title '1 processor', \
       points index 1 with linespoints linewidth 2 title '2 processors', \
       points index 2 with linespoints linewidth 2 title '4 processors', \
       points index 3 with linespoints linewidth 2 dashtype 2 title '2 processors, MaxStartups as advised', \
       points index 4 with linespoints linewidth 2 dashtype 2 title '4 processors, MaxStartups as advised'
}
if (picture eq 'check') {
  set xlabel 'seconds since the host is back, or since all were told'
  set ylabel 'chassis that have archived'
  set yrange [0:*]
  set xrange [0:*]
  set key bottom right
  set style fill transparent solid 0.25 noborder
  plot points index 0 with lines linewidth 2 linecolor 'blue' title 'behind the outage', \
       points index 1 using 3:2 with lines dashtype 2 linecolor 'blue' title 'simulated: the least', \
       points index 1 using 4:2 with lines dashtype 3 linecolor 'blue' title 'and the most', \
       points index 2 with lines linewidth 2 linecolor 'orange' title 'all at one moment', \
       points index 3 using 3:2 with lines dashtype 2 linecolor 'orange' title 'simulated: the least', \
       points index 3 using 4:2 with lines dashtype 3 linecolor 'orange' title 'and the most'
}
