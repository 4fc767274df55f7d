# The plotting window's field with 16 curves, 900x500, on the offscreen platform: all of a million samples of each, two
# thousand of each, a thousand of each that go up and down all the time, a zoom, and the cursor on what is drawn already.
# shellcheck shell=sh disable=SC2154
build plot_bench
export QT_QPA_PLATFORM=offscreen
plot=$build/benchmarks/plot_bench

many=$(per_call "$plot" redraw-many 1 4)
few=$(per_call "$plot" redraw-few 2 12)
restless=$(per_call "$plot" redraw-restless 2 12)
zoom=$(per_call "$plot" zoom 1 4)
cursor=$(per_call "$plot" cursor 2 22)

at_most "redraw, 16 curves of a million samples" "$many" 200000000 instructions
at_most "redraw, 16 curves of two thousand samples" "$few" 70000000 instructions
at_most "redraw, 16 curves of a thousand restless samples" "$restless" 200000000 instructions
at_most "zoom, 16 curves of a million samples" "$zoom" 200000000 instructions
at_most "cursor moved, 16 curves of a million samples" "$cursor" 5500000 instructions
at_least "gain of the picture that the cursor moves over" "$(ratio "$many" "$cursor")" 10 times
"$plot" 2>/dev/null | while read -r scenario milliseconds; do
    figure "$scenario, wall clock" "$milliseconds" milliseconds
done
