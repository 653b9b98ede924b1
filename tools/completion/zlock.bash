# Completion of zlock for bash: options, the locks of a directory, and behind "--" the command.

# Sets `directory`, `name` once it is given, and `start`, where the command begins; 0: not yet.
_zlock_parse() {
    local i
    directory=. name='' start=0
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
        --) start=$((i + 1)) && return ;;
        --dir) directory=${COMP_WORDS[++i]/#\~\//$HOME/} ;;
        --wait | --conflict-exit | --mode) ((i++)) ;;
        -*) ;;
        *) name=${COMP_WORDS[i]} ;;
        esac
    done
}

# Of a command its own completion, where there is one for any command.
_zlock_command() {
    if declare -F _command_offset >/dev/null; then
        _command_offset "$1"
    elif ((COMP_CWORD == $1)); then
        mapfile -t COMPREPLY < <(compgen -c -- "$current" | sort -u)
    fi
}

_zlock_names() {
    local file
    compopt +o default 2>/dev/null
    for file in "$directory"/._zpl*; do
        [[ -f $file ]] || continue
        file=${file##*/._zpl}
        [[ $file == "$current"* ]] && COMPREPLY+=("$(printf '%q' "$file")")
    done
}

# Where nothing is offered, files are.
_zlock() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local directory name start
    COMPREPLY=()
    _zlock_parse
    if ((start > 0)); then
        _zlock_command "$start"
    elif [[ $previous == --dir ]]; then
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
    elif [[ $previous =~ ^--(wait|conflict-exit|mode)$ ]]; then
        compopt +o default 2>/dev/null
    elif [[ $current == -* ]]; then
        # What the tool's own help lists, so that both agree.
        mapfile -t COMPREPLY < <(compgen -W "-- $(zlock --help 2>/dev/null |
            grep -oE '^  (-[a-z],)?--[a-z0-9-]+' | sed 's/.*--/--/')" -- "$current")
    elif [[ -z $name ]]; then
        _zlock_names
    fi
}

complete -o default -F _zlock zlock
