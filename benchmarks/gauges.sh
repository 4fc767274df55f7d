# Value changes of the gauges with the repaint of what they change, as large as the panel shows them, on the offscreen
# platform.
# shellcheck shell=sh disable=SC2154
build gauges_bench
export QT_QPA_PLATFORM=offscreen
gauges=$build/benchmarks/gauges_bench

dial=$(per_call "$gauges" dial 100 457)
dial_redrawn=$(per_call "$gauges" dial-redrawn 10 46)
dial2=$(per_call "$gauges" dial-ratio2 100 457)
dial2_redrawn=$(per_call "$gauges" dial-ratio2-redrawn 10 46)
thermometer=$(per_call "$gauges" thermometer 100 457)
thermometer_redrawn=$(per_call "$gauges" thermometer-redrawn 10 46)
thermometer2=$(per_call "$gauges" thermometer-ratio2 100 457)
thermometer2_redrawn=$(per_call "$gauges" thermometer-ratio2-redrawn 10 46)
lamp=$(per_call "$gauges" lamp 100 500)

# The needle's outline alone takes the rasterizer 72,000; the dial drawn anew has it draw ten long circles.
at_most "dial 121x121, value change" "$dial" 145000 instructions
at_most "thermometer 40x131, value change" "$thermometer" 130000 instructions
at_most "lamp 21x21, switched" "$lamp" 35000 instructions
at_most "dial, background redrawn each time" "$dial_redrawn" 4000000 instructions
at_least "dial, gain of the cached background" "$(ratio "$dial_redrawn" "$dial")" 5 times
at_most "dial at pixel ratio 2, value change" "$dial2" 330000 instructions
at_least "dial at pixel ratio 2, gain of the cached background" "$(ratio "$dial2_redrawn" "$dial2")" 5 times
figure "thermometer, background redrawn each time" "$thermometer_redrawn" instructions
figure "thermometer, gain of the cached background" "$(ratio "$thermometer_redrawn" "$thermometer")" times
figure "thermometer at pixel ratio 2, value change" "$thermometer2" instructions
figure "thermometer at pixel ratio 2, gain of the cached background" "$(ratio "$thermometer2_redrawn" "$thermometer2")" times
"$gauges" 2>/dev/null | while read -r scenario microseconds; do
    figure "$scenario, wall clock" "$microseconds" microseconds
done
