# The Linux utilities: what a call costs, how evenly the realtime timer wakes a loop of 1 ms, and building plotting batches.
# shellcheck shell=sh disable=SC2154
build utilities_bench
utilities=$build/benchmarks/utilities_bench

# Each scenario's loop around the call is counted too: "nothing" is that loop alone. Under callgrind the clock is a
# system call of few instructions, so what a reading costs shows in the wall clock.
figure "the loop around each call" "$(per_call "$utilities" nothing 10000 20000)" instructions
at_most "timecount" "$(per_call "$utilities" timecount 10000 20000)" 30 instructions
at_most "timedelay, one alone: no clock reading" "$(per_call "$utilities" timedelay-one 10000 20000)" 60 instructions
at_most "timedelay, two in turn: a clock reading each" "$(per_call "$utilities" timedelay-pass-2 10000 20000)" 80 instructions
at_most "timedelay, 32 in turn" "$(per_call "$utilities" timedelay-pass-32 10000 20000)" 80 instructions
at_most "get_m_time" "$(per_call "$utilities" get_m_time 10000 20000)" 50 instructions
at_most "get_u_time" "$(per_call "$utilities" get_u_time 10000 20000)" 50 instructions
figure "clock_gettime" "$(per_call "$utilities" clock_gettime 10000 20000)" instructions
at_most "a record of a plotting batch" "$(per_call "$utilities" batch-samples 8900 17800)" 50 instructions
for scenario in timecount timedelay-one timedelay-pass-2 timedelay-pass-32 get_m_time get_u_time clock_gettime; do
    figure "$scenario, wall clock" "$("$utilities" "$scenario" 5000000 | awk '{ print $2 }')" nanoseconds
done
for scenario in batch-samples batch-names; do
    figure "$scenario, built" "$("$utilities" "$scenario" 5000000 | awk '{ print $4 }')" "MB/s"
done

# LOOP COLUMN: a figure of the last wake-up run: 3 the mean, 5 p50, 7 p90, 9 p99, 11 p99.9, 13 the largest.
late() {
    awk -v loop="$1" -v column="$2" '$1 == loop { print $column }' "$scratch/wakeups"
}

# The largest lateness is the machine's affair and has no limit; the timer's own share shows in the ratios.
for load in wakeups wakeups-loaded; do
    "$utilities" "$load" 10 >"$scratch/wakeups" 2>"$scratch/wakeups.log"
    [ "$load" = wakeups ] && state="idle" || state="one core busy"
    for column in 3:mean 5:median 9:"99 %" 11:"99.9 %" 13:largest; do
        figure "1 ms timer loop late, $state, ${column#*:}" "$(late timer "${column%%:*}")" us
        figure "1 ms clock_nanosleep loop late, $state, ${column#*:}" "$(late clock_nanosleep "${column%%:*}")" us
    done
    at_most "timer against clock_nanosleep, $state, median" "$(ratio "$(late timer 5)" "$(late clock_nanosleep 5)")" 2 times
    figure "timer against clock_nanosleep, $state, 99 %" "$(ratio "$(late timer 9)" "$(late clock_nanosleep 9)")" times
    figure "timer against clock_nanosleep, $state, 99.9 %" "$(ratio "$(late timer 11)" "$(late clock_nanosleep 11)")" times
done
