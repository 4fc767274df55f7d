# The whole application: its start and its telemetry frames in instructions on the offscreen platform, and its work while
# it drives on a screen in memory.
# shellcheck shell=sh disable=SC2154
build ohjauspaneeli vehicle-simulator line_preload plain_dialog panel_bench
panel_bench=$build/benchmarks/panel_bench

# What depends on the machine's load has no limit: the same program starts in 1.0 or in 1.3 times the plain dialog's time.
panel_instructions() {
    QT_QPA_PLATFORM=offscreen QT_HASH_SEED=0 instructions "$panel_bench" "$1"
}

start=$(panel_instructions start)
start_plain=$(panel_instructions start-plain)
export QT_QPA_PLATFORM=offscreen
frame_all=$(per_call "$panel_bench" all 110 210)
frame_small=$(per_call "$panel_bench" small 110 210)
frame_unchanged=$(per_call "$panel_bench" unchanged 110 210)
unset QT_QPA_PLATFORM

at_most "telemetry frame, all panes shown" "$frame_all" 900000 instructions
at_most "telemetry frame, small panel" "$frame_small" 410000 instructions
at_most "telemetry frame, unchanged values, all panes shown" "$frame_unchanged" 120000 instructions
figure "start to first paint" "$start" instructions
figure "start to first paint, plain dialog" "$start_plain" instructions
at_most "start to first paint, against a plain dialog" \
    "$(awk -v a="$start" -v b="$start_plain" 'BEGIN { printf "%.2f\n", a / b }')" 1.2 times

export LINE_PRELOAD_LIBRARY="$build/program/line_preload.so"
"$python" -B benchmarks/application_bench.py --panel "$build/ohjauspaneeli" --plain "$build/benchmarks/plain_dialog" \
    --simulator "$build/simulator/vehicle-simulator" >"$scratch/application"

measured() {
    sed -n "s/^$1 //p" "$scratch/application"
}

figure "start to first paint, wall clock" "$(measured start)" ms
figure "start to first paint of the plain dialog, wall clock" "$(measured start-plain)" ms
for pause in 100 10; do
    figure "processor time while driving, pause $pause ms" "$(measured processor-$pause)" ms/s
    figure "link cycle, pause $pause ms, median" "$(measured period-$pause)" ms
    figure "link cycle, pause $pause ms, spread of the middle 90 %" "$(measured spread-$pause)" ms
    figure "link cycle, pause $pause ms, longest" "$(measured longest-$pause)" ms
done
