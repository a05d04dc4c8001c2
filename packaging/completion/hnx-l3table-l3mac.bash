# Bash completion for the tools of hnx-l3table-l3mac. The names come from
# the tools themselves, so they cannot drift: table and field names from
# `hnx-tbl tables` and `hnx-tbl fields TABLE`, debug commands from the
# running module (`hnx-cmd MODULE help`), options from each tool's --help.
# Installed once under every tool's name; stands alone, without the
# bash-completion package's helpers.

# The options that a tool's --help names.
_hnx_options() {
    "$1" --help 2>/dev/null | grep -o -- '--[a-z][a-z0-9-]*' | sort -u
}

# The --root words of the line so far, to pass on to the tool asked.
_hnx_root_of_line() {
    local i
    for ((i = 1; i < COMP_CWORD; i++)); do
        if [[ ${COMP_WORDS[i]} == --root ]]; then
            printf '%s\n' --root "${COMP_WORDS[i + 1]}"
            return
        fi
    done
}

# The words before the current one that are neither options nor --root's
# value (nor a FIELD=VALUE's parts), in order.
_hnx_plain_words() {
    local i w
    for ((i = 1; i < COMP_CWORD; i++)); do
        w=${COMP_WORDS[i]}
        if [[ $w == --root ]]; then ((i++)); continue; fi
        [[ $w == -* || $w == = || ${COMP_WORDS[i + 1]} == = || ${COMP_WORDS[i - 1]} == = ]] && continue
        printf '%s\n' "$w"
    done
}

_hnx_tbl() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    if [[ $prev == --root ]]; then
        mapfile -t COMPREPLY < <(compgen -d -- "$cur")
        return
    fi
    [[ $prev == = || $cur == = ]] && return  # a value: the tool says what it takes
    local -a plain
    mapfile -t plain < <(_hnx_plain_words)
    local verb=${plain[0]} table=${plain[1]}
    if [[ -z $verb ]]; then
        mapfile -t COMPREPLY < <(compgen -W "set del get dump watch tables fields --root --help --version" -- "$cur")
    elif [[ $verb == tables ]]; then
        return
    elif [[ -z $table || $verb == watch ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(hnx-tbl tables 2>/dev/null)" -- "$cur")
    elif [[ $verb == set || $verb == del || $verb == get ]]; then
        mapfile -t COMPREPLY < <(compgen -S = -W "$(hnx-tbl fields "$table" 2>/dev/null)" -- "$cur")
        compopt -o nospace 2>/dev/null
    elif [[ $verb == dump ]]; then
        mapfile -t COMPREPLY < <(compgen -W "--json --ranges" -- "$cur")
    fi
}

_hnx_cmd() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    if [[ $prev == --root ]]; then
        mapfile -t COMPREPLY < <(compgen -d -- "$cur")
        return
    fi
    local -a plain root
    mapfile -t plain < <(_hnx_plain_words)
    mapfile -t root < <(_hnx_root_of_line)
    if ((${#plain[@]} == 0)); then
        # The modules that run: their command sockets.
        local base=${root[1]:-${HNX_ROOT:-}} s mods=
        for s in "$base"/var/run/hnx/*.sock; do
            [[ -S $s ]] && mods+=" $(basename "$s" .sock)"
        done
        mapfile -t COMPREPLY < <(compgen -W "$mods --root --help --version" -- "$cur")
    elif ((${#plain[@]} == 1)) || [[ ${plain[1]} == help && ${#plain[@]} == 2 ]]; then
        local cmds
        cmds=$(hnx-cmd "${root[@]}" "${plain[0]}" help 2>/dev/null | awk 'NR > 1 && !/^[ \t]/ { print $1 }')
        ((${#plain[@]} == 1)) && cmds+=" help"
        mapfile -t COMPREPLY < <(compgen -W "$cmds" -- "$cur")
    fi
}

# The other tools: their options, and files or folders where they take one.
_hnx_simple() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    case $prev in
        --root | --bin) mapfile -t COMPREPLY < <(compgen -d -- "$cur"); return ;;
        --plan | --cap | --profile | --daemon) mapfile -t COMPREPLY < <(compgen -f -- "$cur"); return ;;
        --board) mapfile -t COMPREPLY < <(compgen -W "two copy direct one" -- "$cur"); return ;;
    esac
    [[ $cur == -* ]] && mapfile -t COMPREPLY < <(compgen -W "$(_hnx_options "$1")" -- "$cur")
}

complete -F _hnx_tbl hnx-tbl
complete -F _hnx_cmd hnx-cmd
complete -F _hnx_simple hnx-load hnx-soak hnx-l3mac-check l3mac-cover l3mac-feed
