# A line more in the panel's status view, with its repaint: early in a session, and after hours without a line.
# shellcheck shell=sh disable=SC2154
build status_bench
export QT_QPA_PLATFORM=offscreen
status=$build/benchmarks/status_bench

early=$(per_call "$status" append 10 110)
late=$(per_call "$status" append 1100 1300)

figure "line in the status view, from line 10 on" "$early" instructions
at_most "line in the status view, from line 1,100 on" "$late" "$((early * 5 / 4))" instructions
