# The report of a shift: 8 hours with a frame each 20 ms and a reply in three pieces. At most 200 MB of file, 10 s and
# 200 MB of memory are the goals; the time is judged by the instructions of each frame, of which 10 s hold some 20,000.
# shellcheck shell=sh disable=SC2154
build vehicle-recorder recording_source
recorder=$build/recorder/vehicle-recorder
source=$build/benchmarks/recording_source

# Instructions of a report of so many seconds: SECONDS [OPTION ...]
report_instructions() {
    "$source" "$scratch/short.recording" "$1"
    shift
    instructions "$recorder" report "$scratch/short.recording" "$@"
}

short=$(report_instructions 100)
long=$(report_instructions 300)
at_most "report, each frame with its reply" "$(((long - short) / 10000))" 12000 instructions

"$source" "$scratch/shift.recording" 28800
at_most "8 h at 20 ms, size of the recording" "$(stat -c %s "$scratch/shift.recording" | awk '{ print $1 / 1e6 }')" 200 MB
for page in text html; do
    set -- report "$scratch/shift.recording"
    [ $page = text ] || set -- "$@" --html "$scratch/shift.html"
    "$python" -B benchmarks/resources.py "$recorder" "$@" >"$scratch/report-$page"
    figure "report of it as $page, wall clock" "$(awk '$1 == "s" { print $2 }' "$scratch/report-$page")" s
    at_most "report of it as $page, memory" "$(awk '$1 == "MB" { print $2 }' "$scratch/report-$page")" 200 MB
done
figure "the page of it" "$(stat -c %s "$scratch/shift.html" | awk '{ printf "%.0f\n", $1 / 1000 }')" kB
rm "$scratch/shift.recording"
