#!/usr/bin/env bash
# Builds the Debian package, installs it into an empty root and tries what is there: the program,
# its manual page, its completions, each found and used by its own shell:
#   install_test.sh BUILD_FOLDER
# Exit status 77: the tools for it are not here. A shell that is not here is passed over.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
for tool in dpkg dpkg-deb dpkg-shlibdeps file script; do
    command -v "$tool" >/dev/null || exit 77
done
build=$(realpath -m "$1") work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    printf '%s\n' "$@"
    exit 1
}

deb=$("$root/script/package" "$build" 2>"$work/log") || fail "$(cat "$work/log")"
[[ $(dpkg-deb -f "$deb" Depends) =~ ^libc6\ [^,]*$ ]] || fail "It depends on more than libc6"
! command -v lintian >/dev/null ||
    lintian --allow-root --fail-on error,warning "$deb" >"$work/log" 2>&1 ||
    fail "$(cat "$work/log")"
# The same bytes at another time, by somebody with other rights; and no word of the place.
mv "$deb" "$work/first.deb"
(umask 077 && touch "$build/morp" && "$root/script/package" "$build" >"$work/log" 2>&1) ||
    fail "$(cat "$work/log")"
cmp "$deb" "$work/first.deb" || fail "Packed twice, it is not the same"
# dpkg as root keeps its books there; unpacking alone does for everybody else.
mkdir -p "$work/root/var/lib/dpkg/"{info,updates}
touch "$work/root/var/lib/dpkg/status"
# --force-depends: the libraries are those of this system, outside the empty root.
if [[ $(id -u) == 0 ]]; then
    dpkg --root="$work/root" --log="$work/log" --force-script-chrootless --force-depends \
        --install "$deb" >"$work/log" 2>&1 || fail "$(cat "$work/log")"
else
    dpkg-deb -x "$deb" "$work/root"
fi
usr=$work/root/usr
version=$(dpkg-deb -f "$deb" Version)
! grep -aqF -e "$root" -e "$build" "$usr/bin/morp" || fail "It knows where it was built"
grep -aq "@(#)morp ${version%-*}" "$usr/bin/morp" || fail "The program is of another version"
[[ $(grep -m1 '^## ' "$root/CHANGELOG.md") == "## ${version%-*} "* ]] || fail "No word of the changes"
ls "$usr"/share/doc/morp/{README.md,copyright,changelog.gz,changelog.Debian.gz} >/dev/null
for module in main pass ploop msg pty tty utils editlib edit history emacs vi; do
    grep -aq "@(#)morp $module " "$usr/bin/morp" || fail "No version of the module $module in it"
done
! command -v man >/dev/null || MANPATH=$usr/share/man man morp | grep -q 'morp -- python3' ||
    fail "man morp shows no manual page"

# petctl answers lines, and has a completion of its own. A line is typed, recalled, sent again.
# shellcheck disable=SC2016
printf '#!/bin/sh\nwhile read -r x && [ "$x" != quit ]; do echo "<$x>"; done\n' >"$work/petctl"
chmod +x "$work/petctl"
export HOME=$work PATH=$usr/bin:$work:$PATH TERM=dumb HISTFILE='' Q_VXEDITOR=emacs
unset BASH_ENV ZDOTDIR XDG_CONFIG_HOME XDG_DATA_HOME
printf 'hello\r\020\rquit\r' | script -qec 'morp petctl' /dev/null >"$work/out"
[[ $(grep -c '<hello>' "$work/out") == 2 ]] || fail "$(cat -v "$work/out")"
morp-history "$work/.petctl_history" | grep -q ' 2 .* hello$' || fail "The history is not readable"
# As text and back it is the same file; one that is there, or has no room, is refused.
cd "$work"
morp-history -e .petctl_history >text
morp-history -i again <text >log
cmp .petctl_history again || fail "Not the history that was text"
! morp-history -i text <.petctl_history 2>log || fail "A file that was there is imported into"
mkfifo pipe
timeout 60 morp-history -c pipe 2>log || (($? == 2)) || fail "A pipe is waited for: $(cat log)"
! (ulimit -f 0 && morp-history -i small <text >/dev/null 2>&1) || fail "No room, and no complaint"
[[ $(morp-history -c again) == *sound && $(morp-history -n again) == 3 && ! $(ls small* 2>&-) ]] ||
    fail "What morp-history made: $(ls) $(morp-history again)"

# For a user alone.
cmake --install "$build" --prefix "$work/.local" >log || fail "$(cat log)"
[[ $(find .local -type f | wc -l) -ge 12 ]] || fail "$(find .local)"

# In each shell a place's folders take the place of those in which it looks for completions. TAB is
# typed behind each line, and ^G, which shows what is there then as <line> and empties it.
cat >"$work/bash" <<'END'
PS1=; source /usr/share/bash-completion/bash_completion
_petctl() { mapfile -t COMPREPLY < <(compgen -W 'feed --loud' -- "$2"); }
complete -F _petctl petctl
show() { printf '\n<%s>\n' "$READLINE_LINE"; READLINE_LINE=; }
bind 'TAB: menu-complete' 'set enable-bracketed-paste off'; bind -x '"\C-g": show'
END
cat >"$work/zsh" <<'END'
setopt menu_complete; PS1=; fpath=($place${^fpath} $more $fpath)
autoload -Uz compinit; compinit -u -D
_petctl() { _arguments --loud '1:what:(feed)' '-m[]'; }; compdef _petctl petctl
show() { print; print -r "<$BUFFER>"; BUFFER=; zle accept-line; }
zle -N show; bindkey '^G' show; bindkey '^I' complete-word
END
cat >"$work/fish" <<'END'
set fish_complete_path $place$fish_complete_path $fish_complete_path
complete -c petctl -x -a feed; complete -c petctl -l loud
for line in $argv
    set word (string split -- \t (complete -C $line)[1])[1]
    echo "<"(string replace -r '[^ ]*$' '' -- $line)$word">"
end
END
# Behind the bar what the first choice adds, as a pattern.
lines=('morp -|[-m]' 'morp -m |0' 'morp petct|l' 'morp -- petct|l' 'morp -m 1 petct|l'
    'morp petctl fe|ed' 'morp -- petctl fe|ed' 'morp -m 1 petctl -m |(feed|--loud)'
    'morp -m 1 -- petctl --lo|ud' 'morp-history -|[cein]' 'morp-history -e aga|in')
keys=$(printf '%s\t\a' "${lines[@]%%|*}")exit
in_bash() { script -qec "bash --rcfile '$work/bash' -i" /dev/null <<<"$keys"; }
in_zsh() { script -qec 'zsh -f -i' /dev/null <<<" source '$work/zsh'"$'\n'"$keys"; }
in_fish() { fish "$work/fish" "${lines[@]%%|*}"; }
# try PLACE: the completions of a root, or, without one, those of ~/.local, as each shell finds them.
# zsh doesn't look there by itself; README tells its users.
try() {
    export place=$1 more='' XDG_DATA_DIRS=$1/usr/share
    [[ $1 ]] || more=$HOME/.local/share/zsh/site-functions
    for shell in bash zsh fish; do
        command -v "$shell" >/dev/null || continue
        "in_$shell" >"$work/out" 2>&1
        for line in "${lines[@]}"; do
            grep -qE -- "<${line/|/} ?>" "$work/out" ||
                fail "$shell in ${1:-.local}: not completed to \"${line/|/}\"" "$(cat -v "$work/out")"
        done
    done
}
try "$work/root"
PATH=$work/.local/bin:${PATH#*:}
try ''
