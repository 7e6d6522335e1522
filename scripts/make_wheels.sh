#!/usr/bin/env bash
# Makes dist/ anew: a source distribution, and out of it a manylinux wheel for each CPython, which
# carries the libraries it needs. Each wheel is tried by try_wheel.sh. Called by make.
#
#   WHEEL_PYTHONS="3.10 3.13" scripts/make_wheels.sh    # some of the interpreters, not all
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd -P)
cd "$root"
work=$root/build/wheels

say() { printf '%s\n' "wheels: $*" >&2; }

scripts/packages.sh base wheels
read -ra wanted <<<"${WHEEL_PYTHONS:-}"
interpreters=$(scripts/find_python.sh --each "${wanted[@]}")

# The reference BLAS and LAPACK, not those that this machine prefers: nothing here calls them, and
# faster ones start threads of their own when they are loaded. The libraries that need them look beside
# themselves first, so they are put beside them.
folder=/usr/lib/$(gcc -print-multiarch)
libraries=$work/libraries
rm -rf "$libraries"
mkdir -p "$libraries"
cp -L "$folder/blas/libblas.so.3" "$folder/lapack/liblapack.so.3" "$libraries"
while read -r library; do
    cp -L "$library" "$libraries"
done < <(ldd "$folder/libceres.so" | awk '$1 ~ /^lib(cholmod|spqr)\./ { print $3 }')

# The environments stay at their place, so that ccache knows what was compiled with their headers.
environment() {
    local venv=$work/venv-$1 print
    print=$(cat scripts/requirements-{build,wheels}.txt - <<<"$2" | sha256sum)
    if [[ ! -f $venv/.stamp || $(<"$venv/.stamp") != "$print" ]] ||
        ! "$venv/bin/python" -m auditwheel --version >/dev/null 2>&1; then
        say "making an environment of CPython $1 to build in"
        rm -rf "$venv"
        "$2" -m venv "$venv"
        "$venv/bin/python" -m pip install --quiet --no-input --disable-pip-version-check \
            -r scripts/requirements-wheels.txt </dev/null
        echo "$print" >"$venv/.stamp"
    fi
}

# Everything else is made anew: files out of a source distribution all bear one old date.
rm -rf dist "$work"/{source,plain,repaired}
mkdir -p dist "$work"/{source,plain,repaired}

# Compiling eats memory: no more at a time than there are processors.
export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)}

begun=$SECONDS
report=()
while read -r version python; do
    environment "$version" "$python"
    in_venv() { PATH="$work/venv-$version/bin:$PATH" "$@"; }
    if [[ ! -e $work/source/pyproject.toml ]]; then
        say "making the source distribution"
        in_venv python -m build --sdist --no-isolation --outdir dist . >"$work/sdist.log" 2>&1 || {
            cat "$work/sdist.log" >&2
            exit 1
        }
        # What is missing in it is missed below.
        tar -xzf dist/*.tar.gz -C "$work/source" --strip-components=1
    fi
    say "building for CPython $version; the compiler's output goes to build/wheels/build-$version.log"
    since=$SECONDS
    # At one place for all versions: what ccache compiled for one that knows nothing of Python serves
    # the others. What CMake remembers of the version before must not come along.
    rm -rf "$work/cmake"
    in_venv python -m pip wheel -v --no-input --disable-pip-version-check --no-build-isolation \
        --no-deps --wheel-dir "$work/plain" --config-settings build-dir="$work/cmake" \
        --config-settings cmake.define.TALVORIX_PORTABLE=ON "$work/source" \
        </dev/null >"$work/build-$version.log" 2>&1 || {
        tail -n 50 "$work/build-$version.log" >&2
        say "the build for CPython $version failed"
        exit 1
    }
    built=$((SECONDS - since))
    tag=cp${version/./}
    AUDITWHEEL_LD_LIBRARY_PATH=$libraries in_venv auditwheel repair --wheel-dir "$work/repaired" \
        "$work"/plain/*-"$tag"-*.whl >"$work/repair-$version.log" 2>&1 || {
        cat "$work/repair-$version.log" >&2
        exit 1
    }
    in_venv python tools/carried_licences.py --libraries "$folder/blas:$folder/lapack:$folder" \
        "$work"/repaired/*-"$tag"-*.whl
    since=$SECONDS
    scripts/try_wheel.sh "$python" "$work"/repaired/*-"$tag"-*.whl </dev/null
    cp "$work"/repaired/*-"$tag"-*.whl dist/
    report+=("CPython $version: built in $built s, tried in $((SECONDS - since)) s")
done <<<"$interpreters"

say "all made and tried in $((SECONDS - begun)) s"
printf 'wheels: %s\n' "${report[@]}" >&2
ls -sh1 dist >&2
