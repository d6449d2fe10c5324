# Completion of cardhost's command line for bash. The words are cardhost's own: those of its --help.
# To be sourced, or put into /usr/share/bash-completion/completions/ under the name "cardhost".

# The words that --help of the program, or of one of its commands, offers: commands and options.
_cardhost_words() {
    "$1" ${2:+"$2"} --help 2>/dev/null | awk -v commands="${2:+no}" '
        /^Subcommands:/ { listed = commands == "" ; next }
        /^[^ ]/ { listed = 0 }
        listed && /^  [a-z]/ { print $1 }
        /^  -/ { gsub(/,/, " "); for (i = 1; i <= NF && $i ~ /^-/; ++i) print $i }'
}

# What stands in braces behind an option, of the program or of the command: {a,b,c}.
_cardhost_values() {
    { "$1" --help; [[ -z $2 ]] || "$1" "$2" --help; } 2>/dev/null | awk -v option="$3" '
        /^  -/ { found = 0; line = $0; gsub(/,/, " ", line); count = split(line, words, " ")
                 for (i = 1; i <= count && words[i] ~ /^-/; ++i) if (words[i] == option) found = 1 }
        found && match($0, /\{[^}]*\}/) {
            values = substr($0, RSTART + 1, RLENGTH - 2); gsub(/,/, "\n", values); print values; exit }'
}

_cardhost() {
    local program=${COMP_WORDS[0]} current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command='' word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD - 1}"; do
        if [[ $word == [a-z]* ]] && _cardhost_words "$program" | grep -qxF -- "$word"; then
            command=$word
            break
        fi
    done
    COMPREPLY=()
    case $previous in
    --driver | --virtual-state | --replay | --in | -o | --out | --peer | --pin-file | --log)
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        compopt -o filenames 2>/dev/null
        return
        ;;
    --pin-id)
        mapfile -t COMPREPLY < <(compgen -W '1 2 3 4' -- "$current")
        return
        ;;
    --pin | --signature-pin | --prepend | --append | --container)
        return
        ;;
    -*)
        mapfile -t COMPREPLY < <(compgen -W "$(_cardhost_values "$program" "$command" "$previous")" -- "$current")
        [[ ${#COMPREPLY[@]} -eq 0 ]] || return
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$(_cardhost_words "$program"
        [[ -z $command ]] || _cardhost_words "$program" "$command")" -- "$current")
    # Once there is a command, no second one.
    if [[ -n $command ]]; then
        local kept=()
        for word in "${COMPREPLY[@]}"; do [[ $word == -* ]] && kept+=("$word"); done
        COMPREPLY=("${kept[@]}")
    fi
}

complete -F _cardhost cardhost
