# From a frame to its finished line, against one bare snprintf that writes the same line.
# shellcheck shell=sh disable=SC2154
build decoder_bench
decoder=$build/benchmarks/decoder_bench

# SCENARIO [COMPANION]
line_figures() {
    line=$(per_call "$decoder" "$1" 1000 3000)
    bare=$(per_call "$decoder" "${2:-$1}-snprintf" 1000 3000)
    figure "line of $1" "$line" instructions
    at_most "line of $1, against snprintf" "$(ratio "$line" "$bare")" 2 times
}

for scenario in dump nmt sync emergency tpdo tpdo-mapped rpdo sdo-response sdo-request sdo-abort heartbeat; do
    line_figures "$scenario"
done
line_figures tpdo-mapped-512 tpdo-mapped
"$decoder" | while read -r scenario nanoseconds; do
    figure "$scenario, wall clock" "$nanoseconds" nanoseconds
done
