# bash completion for tarnwick(8)

# The wired cards of this host; `tarnwick list` cuts long names, and shows only those that begin with "en".
_tarnwick_cards() {
    if [ -d /sys/class/net ]; then
        local card
        for card in /sys/class/net/*; do
            [ "$(cat "$card/type" 2>/dev/null)" = 1 ] && [ ! -e "$card/wireless" ] && echo "${card##*/}"
        done
    else
        tarnwick list 2>/dev/null | awk '/ service: / { print $1 }'
    fi
}

_tarnwick() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} candidates=""
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        COMPREPLY=($(compgen -W "list serve --version" -- "$word"))
        return
    fi
    [ "${COMP_WORDS[1]}" = serve ] || return
    case $before in
    --iface) candidates=$(_tarnwick_cards) ;;
    --lease) candidates="90s 15m 24h 7d" ;;
    --leases)
        compopt -o filenames 2>/dev/null
        local IFS=$'\n'
        COMPREPLY=($(compgen -f -- "$word"))
        return
        ;;
    --server | --range | --router | --dns | --port | --client-port) return ;;
    *)
        candidates="--iface --server --range --lease --router --dns --leases --json --test-loopback --port --client-port"
        ;;
    esac
    COMPREPLY=($(compgen -W "$candidates" -- "$word"))
}

complete -F _tarnwick tarnwick
