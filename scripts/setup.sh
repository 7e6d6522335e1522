#!/usr/bin/env bash
# Makes ready all that building and testing need: Debian packages, a CPython, and a virtual
# environment .venv with the packages of requirements-dev.txt. A second run with nothing changed
# only looks, and leaves .venv/.setup untouched, so that make rebuilds nothing.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd -P)
cd "$root"
venv=$root/.venv
stamp=$venv/.setup

say() { printf '%s\n' "setup: $*" >&2; }

# What the environment was made from; the place counts, as its scripts hold absolute paths.
fingerprint() {
    {
        echo "$root"
        cat scripts/requirements-build.txt scripts/requirements-dev.txt
    } | sha256sum | cut -d' ' -f1
}

# "VERSION PREFIX" of the installation behind an interpreter; fails when it does not run.
identity() {
    "$1" -I -c 'import os, sys
print(".".join(map(str, sys.version_info[:3])), os.path.realpath(sys.base_prefix))' 2>/dev/null
}

# True when .venv runs, stands where it was made, and is of the interpreter $1 (when one is given).
venv_is_sound() {
    local here pip_says wanted
    here=$(identity "$venv/bin/python") || return 1
    if [[ -n ${1:-} ]]; then
        wanted=$(identity "$1") || return 1
        [[ $here == "$wanted" ]] || return 1
    fi
    # The script, not python -m pip: its first line is what breaks when the folder moves.
    pip_says=$("$venv/bin/pip" --version 2>/dev/null) || return 1
    [[ $pip_says == *"$venv/"* ]]
}

wanted_print=$(fingerprint)
if [[ -f $stamp && $(<"$stamp") == "$wanted_print" ]] && venv_is_sound "${PYTHON:-}"; then
    exec scripts/packages.sh base
fi
if python=$(scripts/find_python.sh); then
    scripts/packages.sh base
elif [[ -n ${PYTHON:-} ]]; then
    exit 1
else
    say "taking the distribution's own Python"
    scripts/packages.sh base python
    if ! python=$(scripts/find_python.sh); then
        say "this distribution's python3 will not do; install one that the lines above ask" \
            "for and name it: make PYTHON=/path/to/python3 ..."
        exit 1
    fi
fi

# From here on the environment counts as unfinished until all is done.
rm -f "$stamp"
if [[ -e $venv ]] && ! venv_is_sound "$python"; then
    say "the .venv here is broken or of another Python; making it anew"
    rm -rf "$venv"
fi
if [[ ! -e $venv ]]; then
    say "making .venv"
    "$python" -m venv "$venv"
    # CMake remembers the interpreter and pybind11's folder; objects may stay.
    find build -maxdepth 2 \( -name CMakeCache.txt -o -name build.ninja \) -delete 2>/dev/null || true
fi

say "installing the Python packages of scripts/requirements-dev.txt"
"$venv/bin/python" -m pip install --quiet --no-input --disable-pip-version-check \
    -r scripts/requirements-dev.txt </dev/null
echo "$wanted_print" >"$stamp"
say "done"
