#!/usr/bin/env bash
# Builds the Debian package, installs it into an empty root and runs what is there:
# package_test.sh BUILD_FOLDER
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
for tool in dpkg dpkg-deb dpkg-shlibdeps file script; do
    command -v "$tool" >/dev/null || exit 77
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    printf '%s\n' "$*"
    exit 1
}

deb=$("$root/script/package" "$1" 2>"$work/log") || fail "$(cat "$work/log")"

depends=$(dpkg-deb -f "$deb" Depends)
for package in ${depends//,/ }; do
    case $package in
        libc6 | libstdc++6 | '(>='* | *')') ;;
        *) fail "It depends on more than the libraries: $depends" ;;
    esac
done

if command -v lintian >/dev/null; then
    lintian --allow-root --fail-on error,warning "$deb" >"$work/log" 2>&1 || fail "$(cat "$work/log")"
fi

# dpkg as root keeps its books there; unpacking alone does for everybody else.
mkdir -p "$work/root/var/lib/dpkg/"{info,updates}
touch "$work/root/var/lib/dpkg/status"
if [[ $(id -u) == 0 ]]; then
    # --force-depends: the libraries are those of this system, outside the empty root.
    dpkg --root="$work/root" --log="$work/log" --force-script-chrootless --force-depends \
        --install "$deb" >"$work/log" 2>&1 || fail "$(cat "$work/log")"
    [[ $(dpkg-query --root="$work/root" -W -f '${db:Status-Status}' morp) == installed ]] ||
        fail "dpkg does not say that it is installed"
else
    dpkg-deb -x "$deb" "$work/root"
fi

usr=$work/root/usr
for installed in bin/morp bin/morp-history share/man/man1/morp.1.gz share/doc/morp/README.md \
    share/doc/morp/copyright share/doc/morp/changelog.gz share/doc/morp/changelog.Debian.gz \
    share/bash-completion/completions/morp share/zsh/site-functions/_morp \
    share/fish/vendor_completions.d/morp.fish; do
    [[ -s $usr/$installed ]] || fail "Not installed: /usr/$installed"
done
for module in main pass ploop msg pty tty utils editlib edit history emacs vi; do
    grep -aq "@(#)morp $module " "$usr/bin/morp" || fail "No version of the module $module in it"
done
if command -v man >/dev/null; then
    MANPATH=$usr/share/man man morp 2>/dev/null | grep -q 'morp -- sqlite3' ||
        fail "man morp does not show the manual page"
fi

# A line is typed, recalled and sent once more.
export HOME=$work PATH=$usr/bin:/usr/bin:/bin Q_VXEDITOR=emacs
cat >"$work/answer" <<'END'
#!/bin/sh
while read -r line && [ "$line" != quit ]; do echo "<$line>"; done
END
chmod +x "$work/answer"
printf 'hello\r\020\rquit\r' | script -qec "morp $work/answer" /dev/null >"$work/out"
[[ $(grep -c '<hello>' "$work/out") == 2 ]] || fail "$(cat -v "$work/out")"
morp-history "$work/.answer_history" | grep -q ' 2 .* hello$' ||
    fail "$(cat -v "$work/.answer_history")"
