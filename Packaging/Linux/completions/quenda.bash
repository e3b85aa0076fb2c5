# Completions of quenda for bash.

_quenda() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]}
    local words=''
    if [ "$COMP_CWORD" -eq 1 ]; then
        words='start stop toggle cancel retry status history settings welcome about quit
            --help --version -h -v'
    else
        case ${COMP_WORDS[1]}:$before in
            status:status) words='--json' ;;
            history:history) words='--copy' ;;
            history:--copy) words='1 2 3 4 5 6 7 8 9 10' ;;
        esac
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _quenda quenda
