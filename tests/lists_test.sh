#!/usr/bin/env bash
# README and manual name the keys and the variables that the code has: lists_test.sh
# The keys are those of the binding tables, each row of which says in a comment what it does, and of
# the table of sequences. Beside them stand those that the editors look at elsewhere, and arguments.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

words() { sed -E 's/\*( |$)/ /g; s/ESC ([^ ])/ESC-\1/g' | tr -s ' ' '\n' | sed '/^$/d' | sort -u; }
# rows NAME FILE...: the rows of the tables so named, those of commands behind ESC with it in front.
rows() {
    awk -v name="$1" '
        /^static constexpr [A-Za-z]*(Binding|Command|Motion) .* = \{$/ {
            on = $4 ~ name
            esc = /Escape/ ? "ESC " : ""
        }
        /^};/ { on = 0 }
        on && /^ / { sub(/^ *\{/, esc); print }' "${@:2}"
}
# names: the keys of such rows as the lists write them, a dash in place of a blank.
names() {
    sed -E "/kPasted/d; s/^(ESC )?(.*), [a-z_]+(<.*>)?\},? .*/\1\2/
        s/ctrl\('(.)'\)/^\1/; s/\^I$/TAB/; s/'\\\\n'/Enter/; s/' '/space/; s/kAlt \| '(.)'/ESC \1/; s/'(.)'/\1/
        s/kCtrl \| /Ctrl-/; s/kAlt \| /Alt-/; s/kShift \| /Shift-/; s/kKey//; s/kEscape/ESC/; s/127/DEL/; s/CODE_(.*)/\L\1/" | words
}
# The keys in a style's card, and in its lists in the manual.
card() {
    sed -n "/^### $1 style/,/^##/p" README.md | grep -v '^##\|^`' | cut -c1-26
}
of_manual() {
    sed -nE "/^.Sh/h; G; /\n.Sh (EDITING IN ${1^^} STYLE|EXTENDED MODE)/s/^.It (Ic )?(.*)\n.*/\2/p" \
        man/morp.1 |
        sed -E 's/ (Ns )?Ar [a-z]+//g; s/ (Ns|Ic) / /g; s/ ,( |$)/ /g; s/\\&//g' | words
}
# has WHAT LIST NEEDED: every word of the latter is one of the list.
has() {
    local missing
    missing=$(comm -13 <(sort -u <<<"$2") <(sort -u <<<"$3") | tr '\n' ' ')
    [[ $missing =~ ^\ *$ ]] || { echo "$1 lacks $missing" && exit 1; }
}

for style in emacs vi; do
    sources=("src/$style"/*.cpp)
    ! rows . "${sources[@]}" | grep -v '},  *// [^ ]' || { echo "No comment in them" && exit 1; }
    always=$(rows '^k(Escape)?[^E]' "${sources[@]}" | names)
    extended=$(comm -13 <(echo "$always") <(rows Extended "${sources[@]}" | names))
    has "README, $style style," "$(card $style | words)" "$always"$'\n'"$extended"
    marked=$(card $style | grep -oE '(ESC )?[^ ]*\*' | words)
    has "README, marked, $style style," "$marked" "$extended"
    has "The manual, $style style," "$(of_manual $style)" "$always"$'\n'"$extended"
done
sequences=$(sed -nE 's/^ *\{"[^"]*", (.*)\},$/\1/p' src/edit/decode_control.cpp | grep -v + |
    sed -E "s/kShift \| '.t'/Shift-TAB/; s/'.n'/Enter/; s/k(Shift|Ctrl) \| kKey(Up|Down)/\2/
        s/kShift \| kKey.*/Left/; s/kCtrl \| /Ctrl-/; s/kKey//")
manual=$(sed -n '/^.Sh EXTENDED/,/^.Sh/p' man/morp.1 | grep -oE '[A-Z][A-Za-z0-9-]+')
has "The manual" "$manual" "$sequences"

# What morp tells the C library in src/os is no affair of the user's.
variables=$(grep -rhoE --exclude-dir=os '"[A-Z][A-Z_]{3,}"' src | tr -d '"' | sort -u)
readme=$(sed -n '/^## Variables/,/^One/s/^|\([^|]*\)|.*/\1/p' README.md |
    grep -oE '[A-Z][A-Z_]{3,}')
manual=$(sed -n '/^.Sh ENVIRONMENT/,/^.Sh/s/^.It Ev//p' man/morp.1 | grep -oE '[A-Z][A-Z_]{3,}')
has README "$readme" "$variables"
has "The manual" "$manual" "$variables"
