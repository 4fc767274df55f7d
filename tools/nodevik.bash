# shellcheck shell=bash
# Completion of the command nodevik for bash(1): the program itself tells how its command line may go on.

_nodevik() {
    local answer
    mapfile -t answer < <("$1" __complete "${COMP_LINE:0:COMP_POINT}" "$COMP_WORDBREAKS" 2>/dev/null)
    COMPREPLY=("${answer[@]:1}")
    case ${answer[0]:-} in
    names*) compopt -o filenames ;;
    files)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "${answer[1]}")
        COMPREPLY=("${COMPREPLY[@]#"${answer[2]}"}")
        ;;
    esac
    case ${answer[0]:-} in
    *parts) compopt -o nospace ;;
    esac
}

complete -F _nodevik nodevik
