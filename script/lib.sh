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

as_root() {
    if [[ $(id -u) -eq 0 ]]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        fail "Not root and no sudo here. Run as root: $*"
    fi
}

# need PACKAGE...: installs the Debian packages that are missing. On another system it leaves the
# tools to the user, and what is missing shows when it is called.
need() {
    command -v dpkg-query >/dev/null && command -v apt-get >/dev/null || return 0
    local package missing=()
    for package in "$@"; do
        [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] ||
            missing+=("$package")
    done
    ((${#missing[@]})) || return 0
    say "Installing ${missing[*]}"
    local apt=(env DEBIAN_FRONTEND=noninteractive apt-get -qq)
    as_root "${apt[@]}" update </dev/null >&2
    as_root "${apt[@]}" install --yes --no-install-recommends "${missing[@]}" </dev/null >&2
}

# What a build takes, what the tests take besides.
build_packages=(g++ cmake ninja-build)
# shellcheck disable=SC2034
test_packages=("${build_packages[@]}" libgtest-dev libvterm-dev
    bc dash gdb python3 sqlite3 # run inside morp
    bash-completion fish zsh    # try the completions
    dpkg-dev file)              # build the package

# configure PRESET: prepares build/PRESET; without a change it says and does nothing. A folder that
# was configured before keeps its generator.
configure() {
    if command -v ninja >/dev/null && [[ ! -e $root/build/$1/CMakeCache.txt ]]; then
        export CMAKE_GENERATOR=Ninja
    fi
    cmake -S "$root" --preset "$1" --log-level=WARNING >/dev/null
}

# build PRESET [TARGET]
build() {
    cmake --build "$root/build/$1" --parallel "$(nproc)" ${2:+--target "$2"}
}

# build_all_of PRESET: the same, but what fails holds up nothing else, so that all of it is seen.
build_all_of() {
    local keep_going=-k
    [[ ! -e $root/build/$1/build.ninja ]] || keep_going=-k0
    cmake --build "$root/build/$1" --parallel "$(nproc)" -- "$keep_going"
}
