# CAN over UDP on the loopback network: frames through the driver, and SDO transfers with node-simulator in another process.
# shellcheck shell=sh disable=SC2154
build udp_bench
"$build"/benchmarks/udp_bench --benchmark_repetitions=5 --benchmark_format=csv >"$scratch/udp" 2>"$scratch/udp.log" || {
    cat "$scratch/udp.log" >&2
    exit 1
}

# Median of a benchmark's column: 3 the time in its unit, 7 the items per second.
udp_median() {
    awk -F, -v name="\"$1/real_time_median\"" -v column="$2" '$1 == name { printf "%.6g", $column }' "$scratch/udp"
}

figure "frames written through udpDriver" "$(udp_median frames_written 7)" "frames/s"
figure "frames read through udpDriver" "$(udp_median frames_read 7)" "frames/s"
figure "expedited SDO read, there and back" "$(udp_median sdo_round_trip 3)" "us"
at_most "1,000 bytes downloaded by segments" "$(udp_median segmented_download/1000 3)" 5 "ms"
at_most "1,000 bytes uploaded by segments" "$(udp_median segmented_upload/1000 3)" 5 "ms"
figure "10,000 bytes downloaded by segments" "$(udp_median segmented_download/10000 3)" "ms"
figure "10,000 bytes uploaded by segments" "$(udp_median segmented_upload/10000 3)" "ms"
