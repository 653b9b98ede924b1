# Completion of zprop for bash: commands, options, files, and the stanzas and keys of a file.

_zprop_words() {
    # What the tool's own help lists, so that both agree.
    case $1 in
    commands) zprop --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z]*\) .*/\1/p' ;;
    *) zprop ${1:+"$1"} --help 2>/dev/null | grep -oE '^  (-[a-z],)?--[a-z0-9-]+' | sed 's/.*--/--/' ;;
    esac
}

# Sets `command` and, behind it, the words that are no options: file, stanza, key.
_zprop_parse() {
    local i
    command='' places=()
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
        --wait | --format | --max-companion | --type | --default | --replace | --value | --stanza | --key | --layer | --env)
            ((i++)) ;;
        -*) ;;
        *) if [[ -z $command ]]; then command=${COMP_WORDS[i]}; else places+=("${COMP_WORDS[i]}"); fi ;;
        esac
    done
}

# A word as the shell would take it: without its quotes, but with nothing run.
_zprop_plain() {
    local word
    word=$(xargs printf '%s' <<<"$1" 2>/dev/null)
    printf '%s' "${word/#\~\//$HOME/}"
}

# The names of stanzas or keys, quoted for the shell.
_zprop_names() {
    local name
    compopt +o default 2>/dev/null
    while IFS= read -r -d '' name; do
        [[ $name == "$current"* ]] && COMPREPLY+=("$(printf '%q' "$name")")
    done < <(zprop names -z "$@" 2>/dev/null)
}

_zprop_choose() { mapfile -t COMPREPLY < <(compgen -W "$1" -- "$current"); }

# Where nothing is offered, files are.
_zprop() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command places
    COMPREPLY=()
    _zprop_parse
    case $previous in
    --type) _zprop_choose 'string int bool' && return ;;
    --format) _zprop_choose 'stanza java' && return ;;
    --layer) return ;;
    esac
    if [[ $current == -* ]]; then
        _zprop_choose "$(_zprop_words "$command") $(_zprop_words '')"
    elif [[ -z $command ]]; then
        _zprop_choose "$(_zprop_words commands)"
    else
        case $command:${#places[@]} in
        check:* | diff:* | merge:* | convert:* | comment:* | *:0) ;;
        edit:* | rewrite:* | list:2 | names:2) ;;
        *:1) _zprop_names "$(_zprop_plain "${places[0]}")" ;;
        *:2) _zprop_names "$(_zprop_plain "${places[0]}")" "$(_zprop_plain "${places[1]}")" ;;
        esac
    fi
}

complete -o default -F _zprop zprop
