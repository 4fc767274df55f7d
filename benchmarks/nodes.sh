# What knowing the nodes of a bus costs: observed frames, in memory.
# shellcheck shell=sh disable=SC2154
build nodes_bench
nodes=$build/benchmarks/nodes_bench

# Instructions that an operation takes more when it is observed.
more_when_observed() {
    echo $(($(per_call "$nodes" "$1-observed" 1000 2000) - $(per_call "$nodes" "$1-direct" 1000 2000)))
}

at_most "frame read, one idle observer" "$(more_when_observed read)" 60 instructions
at_most "frame written, one idle observer" "$(more_when_observed write)" 60 instructions
