# What the recorder adds to the way of a frame and of a reply: 10,000 of each, with a real recording, and without recorder.
# At most 1 ms is the goal for the median; a machine that does other things beside has a far longer worst.
# shellcheck shell=sh disable=SC2154
build vehicle-recorder line_preload carrier_bench
"$build"/benchmarks/carrier_bench "$build/recorder/vehicle-recorder" "$scratch/carrier.recording" >"$scratch/carrier" || exit 1

# How much longer: what of which delay.
added() {
    awk -v direct="direct_$1_$2" -v recorded="recorded_$1_$2" \
        '$1 == direct { without = $2 } $1 == recorded { with = $2 } END { printf "%.1f", with - without }' "$scratch/carrier"
}

delay() {
    awk -v name="$1" '$1 == name { print $2 }' "$scratch/carrier"
}

for what in frame reply; do
    at_most "added to a $what by the recorder, median" "$(added $what median)" 1000 us
    figure "$what through the recorder, median" "$(delay recorded_${what}_median)" us
    figure "$what through the recorder, 99 %" "$(delay recorded_${what}_99)" us
    figure "$what through the recorder, worst" "$(delay recorded_${what}_worst)" us
    figure "$what without the recorder, median" "$(delay direct_${what}_median)" us
    figure "$what without the recorder, worst" "$(delay direct_${what}_worst)" us
done
