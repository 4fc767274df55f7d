# What knowing the nodes of a bus costs: observed frames, SDO transfers, heartbeats; in memory and over UDP.
# shellcheck shell=sh disable=SC2154
build nodes_bench
nodes=$build/benchmarks/nodes_bench

# Instructions that an operation takes more when it is observed.
more_when_observed() {
    echo $(($(per_call "$nodes" "$1-observed" 1000 2000) - $(per_call "$nodes" "$1-direct" 1000 2000)))
}

at_most "frame read, one idle observer" "$(more_when_observed read)" 60 instructions
at_most "frame written, one idle observer" "$(more_when_observed write)" 60 instructions
at_most "SDO read, there and back in memory" "$(per_call "$nodes" sdo-read 1000 2000)" 700 instructions
at_most "SDO write, there and back in memory" "$(per_call "$nodes" sdo-write 1000 2000)" 700 instructions
at_most "heartbeat of a watched node" "$(per_call "$nodes" heartbeat 1000 2000)" 120 instructions

# Over UDP, each figure and what it is held against in one run.
build sdo_bench
"$build/benchmarks/sdo_bench" >"$scratch/sdo" 2>"$scratch/sdo.log" || {
    cat "$scratch/sdo.log" >&2
    exit 1
}

# NAME: a figure of that run.
sdo() {
    awk -v name="$1" '$1 == name { print $2 }' "$scratch/sdo"
}

figure "SDO read over UDP, there and back" "$(sdo round-trip-us)" us
at_most "... in multiples of a bare ping-pong of datagrams" "$(sdo round-trip-ratio)" 1.3 times
figure "100,000 bytes written by segments" "$(sdo segments-ms)" ms
figure "100,000 bytes written by blocks" "$(sdo blocks-ms)" ms
at_least "blocks faster than segments, writing" "$(sdo write-ratio)" 3 times
at_least "blocks faster than segments, reading" "$(sdo read-ratio)" 3 times
at_most "ten nodes asked at once, in multiples of one" "$(sdo ten-ratio)" 1.5 times
