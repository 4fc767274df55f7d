# The whole application on a screen in memory: from process start to first paint, and its work while it drives.
# shellcheck shell=sh disable=SC2154
build ohjauspaneeli vehicle-simulator line_preload plain_dialog
export LINE_PRELOAD_LIBRARY="$build/program/line_preload.so"
"$python" -B benchmarks/application_bench.py --panel "$build/ohjauspaneeli" --plain "$build/benchmarks/plain_dialog" \
    --simulator "$build/simulator/vehicle-simulator" >"$scratch/application"

measured() {
    sed -n "s/^$1 //p" "$scratch/application"
}

figure "start to first paint" "$(measured start)" ms
figure "start to first paint, 80 standard widgets" "$(measured start-plain)" ms
at_most "start to first paint, against 80 standard widgets" \
    "$(awk -v a="$(measured start)" -v b="$(measured start-plain)" 'BEGIN { printf "%.2f\n", a / b }')" 1.25 times
for pause in 100 10; do
    figure "processor time while driving, pause $pause ms" "$(measured processor-$pause)" ms/s
    figure "link cycle, pause $pause ms, median" "$(measured period-$pause)" ms
    figure "link cycle, pause $pause ms, spread of the middle 90 %" "$(measured spread-$pause)" ms
    figure "link cycle, pause $pause ms, longest" "$(measured longest-$pause)" ms
done
