#!/usr/bin/env bash
# Tries a wheel where nothing else is: installs it into an empty virtual environment outside of the
# source tree and runs the quick tests there, once with each copy of the code that it holds.
#
#   scripts/try_wheel.sh PYTHON WHEEL
#
# On the way it looks where the module's libraries come from, and whether the wheel still works on
# a processor without AVX, which an emulator stands in for.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd -P)
[[ $# == 2 ]] || {
    echo "try_wheel: expected PYTHON WHEEL" >&2
    exit 2
}
python=$1
wheel=$(realpath "$2")
# The best of this kind of processor has all of x86-64-v2 and nothing of x86-64-v3.
old_processor=Nehalem

say() { printf '%s\n' "try_wheel: $*" >&2; }

away=$(mktemp -d)
trap 'rm -rf "$away"' EXIT
cd "$away"
# No more of the caller's environment than what finds the packages.
unset PYTHONPATH PYTHONHOME LD_LIBRARY_PATH LD_PRELOAD TALVORIX_CPU VIRTUAL_ENV

"$python" -m venv venv
pip() { venv/bin/python -m pip --quiet --no-input --disable-pip-version-check "$@" </dev/null; }
pip install "$wheel"

# Which copy of the code is loaded, and what else comes with it. What is left to the system are the
# libraries that every Linux of the wheel's tag has.
cat >look.py <<'PY'
import os, re, sys

import numpy


def mapped():
    with open("/proc/self/maps") as maps:
        names = {line.split(maxsplit=5)[5].rstrip("\n") for line in maps if ".so" in line}
    return {os.path.realpath(name) for name in names}


before = mapped()
import talvorix

home = os.path.realpath(os.path.dirname(talvorix.__file__)) + os.sep
if not home.startswith(os.path.realpath(sys.prefix) + os.sep):
    sys.exit(f"imported the module of {home}, not the wheel's")
brought = mapped() - before
system = re.compile(r"/(libc|libm|libdl|libpthread|ld-linux-x86-64|libstdc\+\+|libgcc_s)\.so")
foreign = [name for name in brought if not name.startswith(home) and not system.search(name)]
if foreign:
    sys.exit("taken from outside of the wheel: " + ", ".join(sorted(foreign)))
print("wide" if any(name.startswith(f"{home}talvorix.cpu/") for name in brought) else "narrow")
PY
able=no
if awk '/^flags/ && / avx2 / && / fma / && / bmi2 / { found = 1 } END { exit !found }' /proc/cpuinfo; then
    able=yes
fi
expect() {
    local found
    found=$("${@:2}" venv/bin/python -I look.py)
    [[ $found == "$1" ]] || {
        say "expected the $1 copy of the code, and $found was loaded (${*:2})"
        exit 1
    }
}
expect narrow env TALVORIX_CPU=x86-64-v2
[[ $able == no ]] || expect wide env
if TALVORIX_CPU=fast venv/bin/python -I -c 'import talvorix' 2>error.txt ||
    ! grep -q "ImportError: .*TALVORIX_CPU is 'fast'; expected x86-64-v2 or x86-64-v3" error.txt; then
    say "TALVORIX_CPU=fast was not refused"
    exit 1
fi

# The copy for older processors, its initialisers included, must hold no instruction of newer ones.
module=$(venv/bin/python -I -c 'import talvorix; print(talvorix.__file__)')
objdump -d --no-show-raw-insn "$module" >code.txt
newer='\t(v[a-z0-9]+ .*%[xyz]mm|(andn|bextr|bls[ir]|lzcnt|movbe|mulx|pdep|pext|rorx|s[ah][lr]x) )'
if grep -m1 -P "$newer" code.txt >found.txt; then
    say "the copy for older processors has an instruction of newer ones: $(<found.txt)"
    exit 1
fi

pip install -r <(grep -E '^(matplotlib|pytest|scipy)\b' "$root/scripts/requirements-dev.txt")
quick() {
    "$@" venv/bin/python -I -m pytest "$root/tests/python" -m quick -q -p no:cacheprovider
}
[[ $able == no ]] || quick env
quick env TALVORIX_CPU=x86-64-v2

if ! command -v qemu-x86_64 >/dev/null; then
    say "no qemu-x86_64 (package qemu-user) to stand in for an old processor"
    exit 1
fi
expect narrow qemu-x86_64 -cpu "$old_processor"
qemu-x86_64 -cpu "$old_processor" venv/bin/python -I -m pytest "$root/tests/python/test_estimation.py" \
    -m quick -q -p no:cacheprovider
say "passed: $(basename "$wheel") on $("$python" -V)"
