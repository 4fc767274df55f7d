# The master's cyclic exchange and expedited SDO on a driver in memory; PDOs of four 16-bit variables.
# shellcheck shell=sh disable=SC2154
build canopen_bench
canopen=$build/benchmarks/canopen_bench

# The TPDO's position in the list must not show in what it costs.
at_most "TPDO received, 1 in the list" "$(per_call "$canopen" tpdo-1 1024 2048)" 400 instructions
for position in first last mean; do
    at_most "TPDO received, $position of 64" "$(per_call "$canopen" "tpdo-64-$position" 1024 2048)" 450 instructions
done
for position in first last mean; do
    at_most "TPDO received, $position of 512" "$(per_call "$canopen" "tpdo-512-$position" 1024 2048)" 450 instructions
done
figure "RPDO sent, changed" "$(per_call "$canopen" rpdo-changed 1000 2000)" instructions
figure "RPDO looked at, unchanged" "$(per_call "$canopen" rpdo-unchanged 1000 2000)" instructions
figure "SDO read, round trip" "$(per_call "$canopen" sdo-read 50 100)" instructions
figure "SDO write, round trip" "$(per_call "$canopen" sdo-write 50 100)" instructions
for scenario in tpdo-1 tpdo-64-mean tpdo-512-mean rpdo-changed rpdo-unchanged; do
    figure "$scenario, wall clock" "$("$canopen" "$scenario" 1000000 | awk '{ print $2 }')" nanoseconds
done
for scenario in sdo-read sdo-write; do
    figure "$scenario, wall clock" "$("$canopen" "$scenario" 1000 | awk '{ print $2 }')" nanoseconds
done
