#!/bin/sh
# A list as a Slurm array: a task a shard, and a job that puts the results together when all have ended.
#
#     slurm_submit.sh LIST DIR [MS]        # MS: milliseconds that a job takes, 50 without it
#
# Prints the number of the merge job; merged.jsonl is in DIR after it. Submit again to go on after tasks were
# killed or jobs failed: only what has no good result is run. Nodes see the same files as this machine.
set -eu
here=$(dirname "$(realpath "$0")")
list=$(realpath "$1")
mkdir -p "$2"
dir=$(realpath "$2")
eetool=${EETOOL:-eetool}

[ -f "$dir/shards" ] ||
    "$eetool" jobs --split "$list" --ms "${3:-50}" --minutes "${MINUTES:-10}" --cores "${CORES:-1}" >"$dir/shards"
shards=$(cat "$dir/shards")

array=$(sbatch --parsable --array="0-$((shards - 1))" --cpus-per-task="${CORES:-1}" --output="$dir/task%a.log" \
    --export="ALL,EETOOL=$eetool,LIST=$list,DIR=$dir" "$here/slurm_shard.sh")
sbatch --parsable --dependency="afterany:$array" --output="$dir/merge.log" \
    --export="ALL,EETOOL=$eetool,LIST=$list,DIR=$dir,SHARDS=$shards" "$here/slurm_merge.sh"
