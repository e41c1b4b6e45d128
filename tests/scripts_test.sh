#!/usr/bin/env bash
# The scripts in a folder with a blank in its name that is renamed, and for a user without rights:
# scripts_test.sh
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# expect NAME PATTERN COMMAND...: what the command says; it may fail.
expect() {
    local said
    said=$("${@:3}" 2>&1) || true
    # shellcheck disable=SC2053 # a pattern
    [[ $said == $2 ]] || { printf '%s: %s\n' "$1" "$said" && exit 1; }
}

# A checkout that builds nothing: what is run is a program built before.
mkdir -p "$work/a b"/{src,build/release}
cp -r "$root/script" "$root/CMakePresets.json" "$work/a b"
printf 'cmake_minimum_required(VERSION 3.25)\nproject(x NONE)\n' >"$work/a b/CMakeLists.txt"
printf '#!/bin/sh\necho "ran $*"\n' >"$work/a b/build/release/morp"
chmod +x "$work/a b/build/release/morp"
touch "$work/a b/build/release/built"
with_lib() { bash -c 'set -euo pipefail; source script/lib.sh; "$@"; echo went on' - "$@"; }
script=$(command -v script) || exit 77
cd "$work/a b"
expect "a first configuration" '*went on' with_lib configure release
mv "$work/a b" "$work/c d"
cd "$work/c d"
expect "a renamed checkout" '*went on' with_lib configure release

# Debian, with its packages named in $installed.
mkdir "$work/bin"
printf '#!/bin/sh\necho 1000\n' >"$work/bin/id"
printf '#!/bin/sh\necho "refused $*"; exit 1\n' >"$work/bin/apt-get"
# shellcheck disable=SC2016 # the variables are the script's
printf '#!/bin/sh\nfor p; do :; done\ncase " $installed " in *" $p "*) echo installed ;; esac\n' \
    >"$work/bin/dpkg-query"
printf '#!/bin/sh\n' >"$work/bin/make"
chmod +x "$work/bin"/*
for tool in bash dirname readlink find sed sh stty env rm; do
    ln -s "$(command -v "$tool")" "$work/bin"
done
export PATH=$work/bin installed='g++ cmake'
expect "no root, no sudo" '*Run as root:*apt-get update*apt-get install*gdb dash' \
    with_lib need gdb dash
expect "make in place of ninja" 'went on' with_lib need g++ cmake ninja-build
installed=
expect "a program that is built" 'ran -m 0 dash' script/run -m 0 dash
export SHELL=/bin/bash
expect "nobody to read it" 'ran ' script/run
terminal() { "$script" -qec "$*" /dev/null </dev/null; }
for options in '' '-m 0' --; do
    expect "a shell of its own editor" "bash has an*script/run dash*ran $options*" \
        terminal script/run "$options"
done
SHELL=/bin/dash expect "a shell without one" 'ran *' terminal script/run
expect "a program" 'ran -m 0 cat*' terminal script/run -m 0 cat
