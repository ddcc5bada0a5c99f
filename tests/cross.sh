#!/bin/sh
# Builds for other processors, runs the tests there in an emulator, and compares random runs of the program with those
# of this machine, file by file.
#
#   cross.sh [--short] [PROCESSOR...]      arm64 and s390x if none is named
#
# --short: the tests of library and program only, with few cases; 20 runs in place of 120.
set -eu

cd "$(dirname "$0")/.."
cases=200 runs=120 short=
if [ "${1:-}" = --short ]; then
    cases=50 runs=20 short=-core
    shift
fi
[ $# -gt 0 ] || set -- arm64 s390x

cmake --preset release >/dev/null
cmake --build --preset release --target pre_ee_main eetool
for processor in "$@"; do
    build=build/$processor$short
    if [ -n "$short" ]; then
        cmake --preset "$processor" -B "$build" -DCMODEL_TOOLS=OFF -DCMODEL_CORE_TESTS=ON >/dev/null
    else
        cmake --preset "$processor" >/dev/null
    fi
    cmake --build "$build"
    CMODEL_TEST_CASES=$cases ctest --test-dir "$build" --output-on-failure -j 2 ${short:+-E exhaustive}
    emulator=$(sed -n 's/^set(CMAKE_CROSSCOMPILING_EMULATOR \(.*\))/\1/p' "cmake/cross/$processor.cmake")
    python3 tests/cross_runs.py build/release "$build" "$emulator" $runs
done
