# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# What run-demo, run-tests and CI share. Sourced by bash, from the top of the tree.
set -euo pipefail

say() { printf '\n== %s\n' "$*"; }

fail() {
    printf '\n%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

trap 'fail "stopped at line $LINENO: $BASH_COMMAND"' ERR

export jobs # for the scripts that source this file
jobs=$(nproc)

# have_header NAME: whether the C++ compiler finds a header.
have_header() {
    command -v g++ >/dev/null && echo "#include <$1>" | g++ -E -x c++ - >/dev/null 2>&1
}

have_clang_runtime() {
    echo 'int main() {}' | clang++ -x c++ - -fsanitize=fuzzer-no-link,address -o /dev/null 2>/dev/null
}

# Each WHAT is a command, or a header written <NAME>; PACKAGE is what brings it.
missing_packages() {
    local need what package
    for need in "$@"; do
        what=${need%%=*}
        package=${need#*=}
        case $what in
        '<'*) what=${what#<} && have_header "${what%>}" || echo "$package" ;;
        *) command -v "$what" >/dev/null || echo "$package" ;;
        esac
    done | sort -u
}

# need WHAT=PACKAGE...: install the packages of whatever is missing; nothing else is touched.
need() {
    local packages as_root=()
    mapfile -t packages < <(missing_packages "$@")
    [ ${#packages[@]} -gt 0 ] || return 0
    say "Installing ${packages[*]}"
    command -v apt-get >/dev/null || fail "install these by hand, there is no apt-get: ${packages[*]}"
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || fail "run as root once, to install: ${packages[*]}"
        as_root=(sudo)
    fi
    "${as_root[@]}" apt-get update -q
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -q -y --no-install-recommends "${packages[@]}"
}

need_build_tools() { need g++=g++ make=make cmake=cmake; }
