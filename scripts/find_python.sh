#!/usr/bin/env bash
# Prints the path of the CPython to build for, and on standard error which it is and why.
# Fails when there is none.
#
#   scripts/find_python.sh                  # one, for development
#   scripts/find_python.sh --each 3.11 ...  # "3.11 PATH" for each version named; for all that the
#                                           # module supports when none is; fails when one is missing
#
# CPython 3.10 comes first, on PATH or under pyenv; else the newest from 3.11 on, up to the newest
# the module supports. One passed over for want of headers or venv is named.
# PYTHON=/path/to/python chooses by hand.
set -euo pipefail

# As requires-python in pyproject.toml.
oldest=10
newest=13
range="CPython 3.$oldest to 3.$newest with headers and venv"

say() { printf '%s\n' "python: $*" >&2; }

# Prints "ok VERSION EXECUTABLE", or why the interpreter $1 will not do. It has to be 3.$2, if given.
probe() {
    "$1" -I - "${2:-$oldest}" "${2:-$newest}" 2>/dev/null <<'PY' || echo "it does not run"
import os, sys, sysconfig

oldest, newest = map(int, sys.argv[1:])

def verdict():
    version = ".".join(map(str, sys.version_info[:3]))
    if sys.implementation.name != "cpython":
        return "it is %s, not CPython" % sys.implementation.name
    if not (3, oldest) <= sys.version_info[:2] <= (3, newest):
        wanted = "3.%d" % oldest if oldest == newest else "one of 3.%d to 3.%d" % (oldest, newest)
        return "it is %s, not %s" % (version, wanted)
    if sysconfig.get_config_var("Py_GIL_DISABLED"):
        return "it is a free-threaded build"
    if not os.path.isfile(os.path.join(sysconfig.get_paths()["include"], "Python.h")):
        return "it has no headers (Python.h)"
    try:
        import ensurepip, venv
    except ImportError as error:
        return "it has no %s module" % error.name
    # Inside a virtual environment, the interpreter that made it: ours must outlive that one.
    return "ok %s %s" % (version, getattr(sys, "_base_executable", None) or sys.executable)

print(verdict())
PY
}

# Interpreters of version 3.$1 under pyenv, the newest patch first.
under_pyenv() {
    local root=${PYENV_ROOT:-$HOME/.pyenv}
    [[ -d $root/versions ]] || return 0
    find "$root/versions" -mindepth 1 -maxdepth 1 -name "3.$1.*" |
        grep -E '/3\.[0-9]+\.[0-9]+$' | sort -rV | sed 's|$|/bin/python3|' || true
}

# Takes the interpreter $1, found as $2 says, when it will do; the reason to prefer it is $3. It has
# to be 3.$4, if given.
take() {
    local result
    result=$(probe "$1" "${4:-}")
    if [[ $result != "ok "* ]]; then
        say "passing over $1: ${result:-it does not run}"
        return 1
    fi
    local version executable
    read -r _ version executable <<<"$result"
    say "CPython $version at $executable ($2; $3)"
    echo "$executable"
}

# Tries every interpreter of version 3.$1; the reason to prefer it is $2.
take_version() {
    local path
    if path=$(command -v "python3.$1") && take "$path" "on PATH" "$2" "$1"; then
        return
    fi
    while read -r path; do
        if take "$path" "under pyenv" "$2" "$1"; then
            return
        fi
    done < <(under_pyenv "$1")
    return 1
}

# One line for each version named, all of them looked for before the missing ones are told.
each() {
    local versions=("$@") version path missing=()
    if [[ $# == 0 ]]; then
        mapfile -t versions < <(seq -f 3.%g "$oldest" "$newest")
    fi
    for version in "${versions[@]}"; do
        if [[ ! $version =~ ^3\.[0-9]+$ ]] || ((${version#3.} < oldest || ${version#3.} > newest)); then
            say "'$version' is not a version to build for; expected some of 3.$oldest to 3.$newest"
            return 1
        fi
        if path=$(take_version "${version#3.}" "one of those asked for"); then
            echo "$version $path"
        else
            missing+=("$version")
        fi
    done
    [[ ${#missing[@]} != 0 ]] || return 0
    say "missing: CPython ${missing[*]} with headers and venv, on PATH or under pyenv"
    for version in "${missing[@]}"; do
        say "to get $version: pyenv install $version, or the distribution's python$version," \
            "python$version-dev and python$version-venv where it has them"
    done
    return 1
}

if [[ ${1:-} == --each ]]; then
    shift
    each "$@"
    exit
fi
if [[ -n ${PYTHON:-} ]]; then
    take "$PYTHON" "named by PYTHON" "chosen by hand" && exit
    say "PYTHON=$PYTHON will not do; expected $range"
    exit 1
fi

take_version 10 "3.10 is preferred" && exit
for ((minor = newest; minor > oldest; minor--)); do
    take_version "$minor" "no 3.10 that will do, so the newest from 3.11 on" && exit
done
# python3 without a versioned name beside it.
if path=$(command -v python3); then
    take "$path" "on PATH" "no versioned name that will do" && exit
fi
say "no $range, neither on PATH nor under pyenv"
exit 1
