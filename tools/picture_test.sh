#!/usr/bin/env bash
# The picture in the README is one of this morp: picture_test.sh PICTURE_PROGRAM
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
command -v python3 >/dev/null || exit 77
"$1" | diff -u "$root/docs/morp.svg" - || {
    echo "Not what docs/morp.svg shows; script/picture draws it again"
    exit 1
}
