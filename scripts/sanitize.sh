#!/usr/bin/env bash
# Builds a configured sanitizer preset and runs tests under it. Called by make, which configures
# it and puts .venv's tools on PATH.
#
#   scripts/sanitize.sh asan   # address and undefined behaviour: native tests, then Python's quick ones
#   scripts/sanitize.sh tsan   # data races: the native tests that work in parallel
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd -P)
cd "$root"

say() { printf '%s\n' "sanitize: $*" >&2; }

# Sanitizers lay their shadow over fixed addresses, and where the kernel scatters mappings widely
# older ones fail to start. Not every container lets a process switch the scattering off.
unscattered=()
if setarch "$(uname -m)" -R true 2>/dev/null; then
    unscattered=(setarch "$(uname -m)" -R)
fi

run() { "${unscattered[@]}" "$@"; }

asan() {
    export ASAN_OPTIONS=detect_leaks=0
    export UBSAN_OPTIONS=print_stacktrace=1
    run cmake --build --preset asan
    run ctest --preset asan

    # The interpreter is not built with the sanitizer, so its runtime goes in ahead of everything;
    # with it libstdc++, or it finds no C++ exceptions to intercept.
    local preload
    preload="$(g++ -print-file-name=libasan.so) $(g++ -print-file-name=libstdc++.so)"
    sanitized_python() {
        run env LD_PRELOAD="$preload" PYTHONPATH="$root/build/asan" PYTHONMALLOC=malloc \
            .venv/bin/python "$@"
    }
    # The module installed in .venv must not be the one that is tested here.
    sanitized_python - <<'PY'
import pathlib, sys
import talvorix

found = pathlib.Path(talvorix.__file__).resolve().parent
wanted = pathlib.Path("build/asan").resolve()
if found != wanted:
    sys.exit(f"sanitize: expected the module of {wanted}, but imported the one of {found}")
PY
    sanitized_python -m pytest tests/python -m quick -p no:cacheprovider
}

tsan() {
    # Without Archer, which tells the sanitizer where OpenMP synchronises, every parallel loop
    # would look like a race; it lies beside clang's OpenMP runtime.
    local archer
    archer=$(dirname "$(readlink -f "$(command -v clang++)")")/../lib/libarcher.so
    if [[ ! -f $archer ]]; then
        say "no libarcher.so beside $(command -v clang++); it comes with libomp-dev of clang's version"
        exit 1
    fi
    export OMP_TOOL_LIBRARIES=$archer
    export TSAN_OPTIONS="ignore_noninstrumented_modules=1 halt_on_error=0 ${TSAN_OPTIONS:-}"
    # More threads than a small machine has processors: races need company.
    export OMP_NUM_THREADS=${OMP_NUM_THREADS:-4}
    # Not the module: only the native tests run here.
    run cmake --build --preset tsan --target tests/native/all
    run ctest --preset tsan
}

case ${1:-} in
    asan | tsan) "$1" ;;
    *)
        say "name the preset to run: asan or tsan"
        exit 2
        ;;
esac
