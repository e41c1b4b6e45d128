#!/usr/bin/env bash
# The pictures in the README are of this morp: picture_test.sh PICTURE_PROGRAM
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
command -v python3 >/dev/null || exit 77
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$1" "$work"
for picture in "$work"/*.svg "$root"/docs/*.svg; do
    name=${picture##*/}
    grep -qF "(docs/$name)" "$root/README.md" || { echo "README does not show $name" && exit 1; }
    diff -u "$root/docs/$name" "$work/$name" || {
        echo "Not what docs/$name shows; script/picture draws it again"
        exit 1
    }
done
