#!/usr/bin/env bash
# Tries the completions of bash, zsh and fish in their shells: completions_test.sh SHELL
# A TAB is typed behind each line and the line that it leaves is compared. Exit status 77: no such
# shell here.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
shell=$1
command -v "$shell" >/dev/null || exit 77

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export HOME=$work PATH=$work/bin:$PATH TERM=dumb HISTFILE=
unset BASH_ENV ZDOTDIR XDG_CONFIG_HOME XDG_DATA_HOME XDG_DATA_DIRS
mkdir "$work/bin"
# petctl stands for a command that has a completion of its own.
for name in morp petctl; do
    printf '#!/bin/sh\n' >"$work/bin/$name"
    chmod +x "$work/bin/$name"
done

# What is typed, and what a TAB makes of it; with several choices, of the first.
lines=(
    'morp petct|morp petctl'
    'morp -- petct|morp -- petctl'
    'morp -m |morp -m 0'
    'morp -m 1 petct|morp -m 1 petctl'
    'morp -m 0 -- petct|morp -m 0 -- petctl'
    'morp petctl |morp petctl adopt'
    'morp petctl fe|morp petctl feed'
    'morp -- petctl fe|morp -- petctl feed'
    'morp -m 1 -- petctl --lo|morp -m 1 -- petctl --loud'
    'morp -m 1 petctl -m |morp -m 1 petctl -m adopt'
)

# Each types the lines into an interactive shell and prints what is there then as <line>. ^G shows
# the line and empties it.
try_bash() {
    local helper=/usr/share/bash-completion/bash_completion
    [[ -e $helper ]] || exit 77
    lines+=('morp -|morp --')
    cat >"$work/rc" <<END
PS1=
source $helper
source $root/completions/bash/morp
_petctl() {
    local words='adopt feed'
    [[ \$2 != -* ]] || words=--loud
    mapfile -t COMPREPLY < <(compgen -W "\$words" -- "\$2")
}
complete -F _petctl petctl
show() { printf '\n<%s>\n' "\$READLINE_LINE"; READLINE_LINE=; }
bind 'TAB: menu-complete' 'set enable-bracketed-paste off'
bind -x '"\C-g": show'
END
    {
        printf '%s\t\a' "${lines[@]%%|*}"
        printf 'exit\n'
    } | script -qec "bash --rcfile $work/rc -i" /dev/null
}

try_zsh() {
    lines+=('morp -|morp -m')
    cat >"$work/rc" <<END
PS1= fpath=($root/completions/zsh \$fpath)
autoload -Uz compinit; compinit -u -D
_petctl() { _arguments --loud '1:what:(adopt feed)' '-m[]'; }
compdef _petctl petctl
setopt menu_complete
bindkey '^I' complete-word
show() { print; print -r "<\$BUFFER>"; BUFFER=; zle accept-line; }
zle -N show
bindkey '^G' show
END
    {
        printf ' source %s\n' "$work/rc"
        printf '%s\t\a' "${lines[@]%%|*}"
        printf 'exit\n'
    } | script -qec 'zsh -f -i' /dev/null
}

# fish tells what it would complete; the last word of the line gives way to the first of it.
try_fish() {
    lines+=('morp -|morp -m')
    cat >"$work/rc" <<END
set -g fish_complete_path $root/completions/fish \$fish_complete_path
complete -c petctl -x -a 'adopt feed'
complete -c petctl -l loud
for line in \$argv
    set -l word (string split -- \t (complete -C \$line)[1])[1]
    echo "<"(string replace -r '[^ ]*\$' '' -- \$line)\$word">"
end
END
    fish --no-config "$work/rc" "${lines[@]%%|*}"
}

case $shell in
    bash) try_bash ;;
    zsh) try_zsh ;;
    fish) try_fish ;;
esac >"$work/out" 2>&1 </dev/null
bad=0
for line in "${lines[@]}"; do
    grep -qE -- "<${line#*|} ?>" "$work/out" || {
        printf '%s: not completed to "%s"\n' "$shell" "${line#*|}"
        bad=1
    }
done
((bad == 0)) || cat -v "$work/out"
exit "$bad"
