#!/usr/bin/env bash
# What each shell offers behind a beginning of a command, asked of the shell itself.
source "$(dirname "$0")/Support.sh"

completions=$source_dir/Packaging/completions
PATH=$build_dir:$PATH

commands="--version list serve"

# The words, sorted, on one line.
sorted() { tr ' ' '\n' | sed '/^$/d' | LC_ALL=C sort -u | paste -s -d ' '; }

options=$(sed -nE 's/^ *(Flag|ValueOption)\{"(--[a-z-]+)".*/\2/p' "$source_dir/Sources/tarnwick/CommandLine.cpp" | sorted)

cards() {
    local card
    for card in /sys/class/net/*; do
        [ "$(cat "$card/type" 2>/dev/null)" = 1 ] && [ ! -e "$card/wireless" ] && echo "${card##*/}"
    done | sorted
}

# What is offered, one a line. Arguments: the words of the command line; the last one is the one to be completed.
lines_in_bash() {
    bash --norc --noprofile -c '
        source "$1"; shift
        COMP_WORDS=(tarnwick "$@"); COMP_CWORD=$#
        _tarnwick tarnwick "${@: -1}" "${COMP_WORDS[COMP_CWORD - 1]}"
        printf "%s\n" "${COMPREPLY[@]}"' bash "$completions/tarnwick.bash" "$@" 2>/dev/null
}

in_bash() { lines_in_bash "$@" | sorted; }

in_fish() { HOME=$scratch fish --no-config -c "source $completions/tarnwick.fish; complete -C 'tarnwick $*'" | cut -f1 | sorted; }

# zsh completes only for a person at a terminal, so it gets one and types; what it offers is recorded on the way.
in_zsh() {
    mkdir -p "$scratch/zsh"
    cp "$completions/_tarnwick" "$scratch/zsh/"
    cat >"$scratch/zsh/ask" <<'END'
zmodload zsh/zpty
zpty z zsh -f -i
zpty -w z "PS1= ; fpath=($ZDOTDIR \$fpath); autoload -U compinit; compinit -u -d $ZDOTDIR/dump"
zpty -w z 'compadd() { if [[ ${@[1,(i)(-|--)]} == *-(O|A|D)* ]]; then builtin compadd "$@"; return; fi
    builtin compadd -A offered "$@"; print -rl -- "${offered[@]}" >>$ZDOTDIR/offers; builtin compadd "$@" }'
zpty -w z "bindkey '^I' complete-word; print ready >\$ZDOTDIR/ready"
END
    cat >>"$scratch/zsh/ask" <<END
while [[ ! -e \$ZDOTDIR/ready ]]; do sleep 0.05; done
zpty -n -w z \$'tarnwick $*\t'
zpty -n -w z \$'\x15print done >\$ZDOTDIR/done\n'
while [[ ! -e \$ZDOTDIR/done ]]; do sleep 0.05; done
zpty -d z
END
    ZDOTDIR=$scratch/zsh timeout 20 zsh -f "$scratch/zsh/ask" >/dev/null 2>&1 || fail "zsh did not answer"
    sorted <"$scratch/zsh/offers"
}

BashOffersTheCommands() { expect_equal "commands" "$commands" "$(in_bash "")"; }

BashOffersTheOptionsOfTheTool() { expect_equal "options" "$options" "$(in_bash serve "")"; }

BashOffersTheCards() { expect_equal "cards" "$(cards)" "$(in_bash serve --iface "")"; }

BashOffersFilesAndNothingForOtherValues() {
    touch "$scratch/some leases"
    cd "$scratch" || exit
    expect_equal "files" "some leases" "$(lines_in_bash serve --leases so)"
    expect_empty "values of --port" "$(in_bash serve --port "")"
    expect_empty "words behind list" "$(in_bash list "")"
}

BashLoadsItByTheNameOfTheTool() {
    local loader=/usr/share/bash-completion/bash_completion
    [ -e "$loader" ] || skip "bash-completion is not installed"
    mkdir -p "$scratch/bash-completion/completions"
    cp "$completions/tarnwick.bash" "$scratch/bash-completion/completions/tarnwick"
    expect_equal "what completes tarnwick" "complete -F _tarnwick tarnwick" "$(XDG_DATA_DIRS=$scratch HOME=$scratch \
        bash --norc -c "source $loader; __load_completion tarnwick; complete -p tarnwick")"
}

ZshOffersTheCommands() {
    need zsh
    expect_equal "commands" "$commands" "$(in_zsh "")"
}

ZshOffersTheOptionsOfTheTool() {
    need zsh
    expect_equal "options" "$options" "$(in_zsh "serve --")"
}

ZshOffersTheCards() {
    need zsh
    expect_equal "cards" "$(cards)" "$(in_zsh "serve --iface ")"
}

FishOffersTheCommands() {
    need fish
    expect_equal "commands" "list serve" "$(in_fish "")"
    expect_equal "the version" "--version" "$(in_fish "--v")"
}

FishOffersTheOptionsOfTheTool() {
    need fish
    expect_equal "options" "$options" "$(in_fish "serve --")"
}

FishOffersTheCards() {
    need fish
    expect_equal "cards" "$(cards)" "$(in_fish "serve --iface ")"
}

"$@"
