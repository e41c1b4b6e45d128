# shellcheck shell=bash
# Sourced by the scripts beside it: where the tree is, the packages they need, configuring a build.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export root

say() {
    printf '%s\n' "$*" >&2
}

fail() {
    say "$*"
    exit 1
}

# have PACKAGE: it is installed; a build tool may have come another way.
have() {
    case $1 in
        g++ | cmake) command -v "$1" >/dev/null && return ;;
        ninja-build) command -v ninja >/dev/null && return ;;
    esac
    # A package may be there for several architectures.
    [[ $(dpkg-query -W -f '${db:Status-Status} ' "$1" 2>/dev/null) =~ (^| )installed( |$) ]]
}

# need PACKAGE...: installs the Debian packages that are missing, as root or through sudo, or says
# how that is done. On another system it leaves the tools to the user, and what is missing shows
# when it is called.
need() {
    command -v dpkg-query >/dev/null && command -v apt-get >/dev/null || return 0
    local package sudo=() missing=()
    for package in "$@"; do
        have "$package" || missing+=("$package")
    done
    ((${#missing[@]})) || return 0
    local install=(apt-get install --yes --no-install-recommends "${missing[@]}")
    [[ $(id -u) -eq 0 ]] || sudo=(sudo)
    if [[ ! ${sudo[*]} ]] || command -v sudo >/dev/null; then
        say "Installing ${missing[*]}"
        if "${sudo[@]}" apt-get -qq update </dev/null >&2 &&
            "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive "${install[@]}" -qq </dev/null >&2; then
            return
        fi
    fi
    # Without ninja CMake takes make.
    [[ ${missing[*]} != ninja-build ]] || ! command -v make >/dev/null || return 0
    fail "Missing: ${missing[*]}. Run as root:
    apt-get update
    ${install[*]}"
}

# What a build takes, what the tests take besides.
build_packages=(g++ cmake ninja-build)
# shellcheck disable=SC2034
test_packages=("${build_packages[@]}" libgtest-dev libvterm-dev
    bc dash gdb python3 sqlite3 # run inside morp
    bash-completion fish zsh    # try the completions
    dpkg-dev file)              # build the package

# cached FOLDER NAME: the value that CMake keeps in a build folder.
cached() {
    sed -n "s/^$2:[A-Z]*=//p" "$1/CMakeCache.txt"
}

# usable FOLDER: it holds a configuration that CMake goes on with: made for this checkout, at this
# place, by this name, for a tool that is there.
usable() {
    [[ $(cached "$1" CMAKE_HOME_DIRECTORY) -ef $root ]] &&
        [[ $(cached "$1" CMAKE_CACHEFILE_DIR) -ef $1 ]] &&
        { [[ $(cached "$1" CMAKE_GENERATOR) != Ninja ]] || command -v ninja >/dev/null; }
}

# configure PRESET [FOLDER]: prepares build/PRESET or another folder; without a change it says and
# does nothing. A folder that was configured before keeps its generator.
configure() {
    local folder=${2-$root/build/$1} fresh=()
    [[ ! -e $folder/CMakeCache.txt ]] || usable "$folder" || fresh=(--fresh)
    if [[ ! -e $folder/CMakeCache.txt || ${fresh[*]} ]] && command -v ninja >/dev/null; then
        local -x CMAKE_GENERATOR=Ninja
    fi
    cmake -S "$root" --preset "$1" -B "$folder" "${fresh[@]}" --log-level=WARNING >/dev/null
}

# Shows that a build goes on: to a terminal all that it says, elsewhere what goes wrong and every
# ten seconds how far it is.
watch_build() {
    if [[ -t 2 ]]; then
        "$@" >&2
        return
    fi
    "$@" 2>&1 | {
        local line next=$((SECONDS + 10))
        while IFS= read -r line; do
            if [[ $line =~ ^\[\ *[0-9]+(%|/[0-9]+)\] ]]; then
                ((SECONDS >= next)) || continue
                next=$((SECONDS + 10))
            fi
            say "$line"
        done
    }
}

# build PRESET [TARGET]
build() {
    watch_build cmake --build "$root/build/$1" --parallel "$(nproc)" ${2:+--target "$2"}
}

# build_all_of PRESET: the same, but what fails holds up nothing else, so that all of it is seen.
build_all_of() {
    local keep_going=-k
    [[ $(cached "$root/build/$1" CMAKE_GENERATOR) != Ninja ]] || keep_going=-k0
    watch_build cmake --build "$root/build/$1" --parallel "$(nproc)" -- "$keep_going"
}
