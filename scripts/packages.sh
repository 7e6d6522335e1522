#!/usr/bin/env bash
# Installs the Debian or Ubuntu packages of the named groups, those that are missing only.
#
#   scripts/packages.sh GROUP...
#   scripts/packages.sh --check GROUP...   # succeeds when nothing is missing, installs nothing
#
# Groups: base (build, demo, test), python (the distribution's own CPython), tidy (clang-tidy),
# sanitize (clang with its sanitizer runtimes and an OpenMP runtime ThreadSanitizer can follow),
# wheels (libraries to carry, and an old processor to try the wheels on).
# SKIP_APT=1 trusts that the machine has what is needed and leaves packages alone.
set -euo pipefail

say() { printf '%s\n' "packages: $*" >&2; }

packages_of() {
    case $1 in
        base)
            echo g++ make ninja-build ccache pkg-config libeigen3-dev libceres-dev \
                libnanoflann-dev libfftw3-dev libgtest-dev
            ;;
        python) echo python3 python3-venv python3-dev ;;
        # clang-tidy reads the sources with clang's own headers, <omp.h> among them.
        tidy) echo clang-tidy libomp-dev ;;
        sanitize) echo clang libomp-dev ;;
        wheels) echo libblas3 liblapack3 binutils qemu-user ;;
        *)
            say "unknown group '$1'; expected base, python, tidy, sanitize or wheels"
            exit 2
            ;;
    esac
}

is_installed() {
    [[ $(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

# Newer distributions keep the sanitizer runtimes apart from clang, in a package named after
# clang's major version that clang itself only recommends.
runtime_package() {
    local clang_version
    clang_version=$(dpkg-query -W -f='${Depends}' clang 2>/dev/null |
        sed -nE 's/.*clang-([0-9]+).*/\1/p') || return 0
    [[ -n $clang_version ]] || return 0
    local package=libclang-rt-$clang_version-dev
    if is_installed "$package" || apt-cache show "$package" >/dev/null 2>&1; then
        echo "$package"
    fi
}

missing_of() {
    local package
    for package in "$@"; do
        is_installed "$package" || echo "$package"
    done
}

as_root=()
updated=no

install_packages() {
    local wanted=$*
    local by_hand="apt-get update && apt-get install $wanted"
    if ! command -v apt-get >/dev/null; then
        say "missing: $wanted"
        say "apt-get is not here to install them; install their like by hand, then set SKIP_APT=1"
        exit 1
    fi
    if [[ $(id -u) != 0 ]]; then
        if ! command -v sudo >/dev/null; then
            say "missing: $wanted"
            say "this is neither root nor is there sudo; run as root: $by_hand"
            exit 1
        fi
        as_root=(sudo -n)
        if ! sudo -n true 2>/dev/null; then
            # Someone at a terminal can be asked; a script cannot.
            if [[ ! -t 0 ]]; then
                say "missing: $wanted"
                say "sudo asks for a password, and there is no terminal to ask at; run:" \
                    "sudo sh -c '$by_hand'"
                exit 1
            fi
            say "sudo may ask for your password to install: $wanted"
            as_root=(sudo)
        fi
    fi
    # sudo drops the environment, hence env inside it.
    local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive NEEDRESTART_MODE=a
        apt-get -qq -y -o DPkg::Lock::Timeout=300 -o DPkg::Use-Pty=0 -o Acquire::Retries=3)
    if [[ $updated == no ]]; then
        say "refreshing apt's lists"
        # A list that is out of reach need not matter: the install below tells.
        "${apt[@]}" update </dev/null >&2 || say "apt-get update failed; trying the lists at hand"
        updated=yes
    fi
    say "installing $wanted"
    local log
    log=$(mktemp)
    if ! "${apt[@]}" install --no-install-recommends "$@" </dev/null >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        say "apt-get could not install: $wanted"
        say "on Ubuntu some of them are in the 'universe' component; is it enabled?"
        exit 1
    fi
    rm -f "$log"
}

check_only=no
if [[ ${1:-} == --check ]]; then
    check_only=yes
    shift
fi
[[ $# -gt 0 ]] || {
    say "name at least one group: base, python, tidy, sanitize or wheels"
    exit 2
}
[[ ${SKIP_APT:-} != 1 ]] || exit 0

wanted=()
for group in "$@"; do
    # An assignment of its own: a failing substitution inside read would go unseen.
    group_packages=$(packages_of "$group")
    read -ra group_packages <<<"$group_packages"
    wanted+=("${group_packages[@]}")
done

if ! command -v dpkg-query >/dev/null; then
    say "needed: ${wanted[*]}"
    say "this is not Debian or Ubuntu; install their like by hand, then set SKIP_APT=1"
    exit 1
fi

mapfile -t missing < <(missing_of "${wanted[@]}")
if [[ $check_only == yes ]]; then
    [[ ${#missing[@]} == 0 ]]
    exit
fi
[[ ${#missing[@]} == 0 ]] || install_packages "${missing[@]}"

if [[ " $* " == *" sanitize "* ]]; then
    runtime=$(runtime_package)
    if [[ -n $runtime ]] && ! is_installed "$runtime"; then
        install_packages "$runtime"
    fi
fi
