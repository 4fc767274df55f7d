# The master's cyclic exchange and expedited SDO on a driver in memory; PDOs of four 16-bit variables.
# shellcheck shell=sh disable=SC2154
build canopen_bench
canopen=$build/benchmarks/canopen_bench

# One frame in a call: a list of up to 16 is walked, a longer one compared with a copy as far as the hit.
at_most "TPDO received, 1 in the list" "$(per_call "$canopen" tpdo-1 1024 2048)" 350 instructions
figure "TPDO received alone, first of 512" "$(per_call "$canopen" tpdo-512-first 1024 2048)" instructions
figure "TPDO received alone, last of 512" "$(per_call "$canopen" tpdo-512-last 1024 2048)" instructions
at_most "TPDO received alone, mean of 512" "$(per_call "$canopen" tpdo-512-mean 1024 2048)" 1900 instructions
# One frame for each in a call: what a list costs once is shared by all.
for count in 4 64 512; do
    at_most "TPDO of a cycle of $count" "$(per_call "$canopen" "cycle-$count" 1024 2048)" 300 instructions
    at_most "TPDO of a cycle of $count, until duplicate" "$(per_call "$canopen" "duplicate-$count" 1024 2048)" 300 instructions
done
figure "RPDO sent, changed" "$(per_call "$canopen" rpdo-changed 1000 2000)" instructions
figure "RPDO looked at, unchanged" "$(per_call "$canopen" rpdo-unchanged 1000 2000)" instructions
figure "SDO read, round trip" "$(per_call "$canopen" sdo-read 50 100)" instructions
figure "SDO write, round trip" "$(per_call "$canopen" sdo-write 50 100)" instructions
for scenario in tpdo-1 tpdo-512-mean cycle-4 cycle-64 cycle-512 rpdo-changed rpdo-unchanged; do
    figure "$scenario, wall clock" "$("$canopen" "$scenario" 1000000 | awk '{ print $2 }')" nanoseconds
done
for scenario in sdo-read sdo-write; do
    figure "$scenario, wall clock" "$("$canopen" "$scenario" 1000 | awk '{ print $2 }')" nanoseconds
done
