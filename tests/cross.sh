#!/bin/sh
# Builds library, program and their tests for other processors, runs the tests there in an emulator, and compares
# random runs of the program with those of this machine, file by file.
#
#   cross.sh [--short] [PROCESSOR...]      arm64 and s390x if none is named
#
# --short: without the tests that take longest; 20 runs in place of 120.
set -eu

cd "$(dirname "$0")/.."
cases=200 runs=120 without=none
if [ "${1:-}" = --short ]; then
    cases=20 runs=20 without='exhaustive|model_test|program_test'
    shift
fi
[ $# -gt 0 ] || set -- arm64 s390x

cmake --preset release >/dev/null
cmake --build --preset release --target pre_ee_main eetool
for processor in "$@"; do
    cmake --preset "$processor" >/dev/null
    cmake --build --preset "$processor"
    CMODEL_TEST_CASES=$cases ctest --test-dir "build/$processor" --output-on-failure -j 2 -E "$without"
    emulator=$(sed -n 's/^set(CMAKE_CROSSCOMPILING_EMULATOR \(.*\))/\1/p' "cmake/cross/$processor.cmake")
    python3 tests/cross_runs.py build/release "build/$processor" "$emulator" $runs
done
