# Reading a device description of 5,000 objects. 100 million instructions take about 13 ms; 20 ms are the goal.
# shellcheck shell=sh disable=SC2154
build description_bench
description=$build/benchmarks/description_bench

"$description" >"$scratch/description"
figure "size of the file" "$(awk '$1 == "bytes" { print $2 }' "$scratch/description")" bytes
at_most "5,000 objects read" "$(per_call "$description" read 1 2)" 100000000 instructions
figure "5,000 objects read, wall clock" "$(awk '$1 == "ms" { print $2 }' "$scratch/description")" ms
