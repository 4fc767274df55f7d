# shellcheck shell=sh
# What the commands in script/ have in common. Each sources it, at the top of the tree.
#
# The comment at a command's head is its use: --help prints it, and so does, on standard error and with status 2, an
# argument that is wrong.

name=$(basename "$0")
child=
# shellcheck disable=SC2034
python=/usr/bin/python3  # Debian's own: no other has what comes in Debian's packages

usage() {
    sed -n '2,${/^#/!q;s/^# \{0,1\}//p;}' "script/$name"
}

# Prints the use and ends if that is what the arguments ask for.
answer_help() {
    case "${1:-}" in
    -h | --help)
        usage
        exit 0
        ;;
    esac
}

# Ends because something went wrong: fail WORDS
fail() {
    echo "$name: $1" >&2
    exit 1
}

# Ends because of a wrong argument: refuse WORDS
refuse() {
    echo "$name: $1" >&2
    usage >&2
    exit 2
}

# Refuses the first of the arguments that are left, if any are.
refuse_rest() {
    [ $# -eq 0 ] || case $1 in
    -*) refuse "unknown option '$1'" ;;
    *) refuse "unknown argument '$1'" ;;
    esac
}

# From here on a signal runs the trap on EXIT and ends the script with the status that tells of it.
end_on_signals() {
    trap 'exit 129' HUP
    trap 'exit 130' INT
    trap 'exit 143' TERM
}

# Runs a command to its end, and returns its status. A signal interrupts it: the trap on EXIT then calls end_child.
attended() {
    "$@" &
    child=$!
    attended_status=0
    wait "$child" || attended_status=$?
    child=
    return "$attended_status"
}

# Ends the attended command if there is one: end_child SIGNAL
end_child() {
    [ -z "$child" ] || {
        kill -s "$1" "$child" 2>/dev/null || true
        wait "$child" 2>/dev/null || true
    }
}

# Gives directories to whoever called the script with sudo.
give_back() {
    for directory; do
        if [ -n "${SUDO_UID:-}" ] && [ -e "$directory" ]; then
            chown -R "$SUDO_UID:$SUDO_GID" "$directory"
        fi
    done
}
