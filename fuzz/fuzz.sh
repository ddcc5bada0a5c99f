#!/bin/sh
# Builds the fuzz targets and runs each for a time, from a corpus that grows from run to run. Stops at the
# first finding and leaves its input in build/fuzz-corpus.
set -eu

seconds=${1:?usage: fuzz.sh SECONDS [TARGET...]}
shift
[ $# -gt 0 ] || set -- pnm_fuzz ini_fuzz frame_fuzz model_fuzz stage_fuzz clip_fuzz picture_fuzz
cd "$(dirname "$0")/.."

# The targets write small files all the time: in memory, where the system has such a place.
TMPDIR=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT

cmake --preset fuzz
cmake --build --preset fuzz
for target in "$@"; do
    corpus=build/fuzz-corpus/$target
    mkdir -p "$corpus"
    "build/fuzz/fuzz/${target}_replay" --seeds "$corpus"
    echo "== $target"
    # Both output streams of the target itself are closed: it is meant to be told what is wrong all the time.
    "build/fuzz/fuzz/$target" -max_total_time="$seconds" -timeout=20 -max_len=4096 -close_fd_mask=3 \
        -print_final_stats=1 -artifact_prefix="build/fuzz-corpus/$target." "$corpus"
done
