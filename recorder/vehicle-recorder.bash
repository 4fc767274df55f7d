# shellcheck shell=bash
# Completion of vehicle-recorder for bash(1). What the commands are, and which options each has, the program itself tells
# in its help.

_vehicle_recorder() {
    local current=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]:-} index
    COMPREPLY=()
    # Behind a lone "--" stands the command line of another program.
    for ((index = 2; index < COMP_CWORD; index++)); do
        if [ "${COMP_WORDS[index]}" = -- ]; then
            if [ "$index" -eq $((COMP_CWORD - 1)) ]; then
                mapfile -t COMPREPLY < <(compgen -c -- "$current" | sort -u)
            else
                compopt -o filenames
                mapfile -t COMPREPLY < <(compgen -f -- "$current")
            fi
            return
        fi
    done
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W "--help --version $("$1" --help 2>/dev/null |
            sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')" -- "$current")
    elif [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$("$1" "$command" --help 2>/dev/null |
            grep -o -e '^ *\(-[a-z],\)\?--[a-z-]*' | grep -o -e '--[a-z-]*')" -- "$current")
    else
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    fi
}

complete -F _vehicle_recorder vehicle-recorder
