#!/bin/sh
# A list in shards by GNU parallel: on the cores of this machine, or on others by ssh.
#
#     parallel.sh LIST DIR SHARDS                  # as many at a time as there are cores
#     parallel.sh LIST DIR SHARDS HOST,HOST,...    # 4/HOST: four at a time there
#
# Run it again to go on after anything was killed: shards that ended well are left out, the others do only what
# has no good result yet. Hosts need eetool in their path, and LIST, DIR and the frames under the same absolute
# names, as on a shared file system. EETOOL and SSH name other programs than eetool and ssh.
set -eu
list=$(realpath "$1")
mkdir -p "$2"
dir=$(realpath "$2")
shards=$3
hosts=${4:-}
eetool=${EETOOL:-eetool}

# Only the first run of a directory says how many shards there are.
[ -f "$dir/shards" ] || echo "$shards" >"$dir/shards"
shards=$(cat "$dir/shards")

status=0
# One core a shard: parallel fills the machine.
seq 0 $((shards - 1)) |
    parallel ${hosts:+--sshlogin "$hosts" --ssh "${SSH:-ssh}"} --joblog "$dir/joblog" --resume-failed \
        "$eetool batch '$list' --results '$dir'/r{}.jsonl --shard {}/$shards --jobs 1 --resume" || status=$?

# shellcheck disable=SC2046  # a file a word
"$eetool" batch "$list" --merge $(seq -f "$dir/r%g.jsonl" 0 $((shards - 1))) >"$dir/merged.jsonl" || status=1
exit "$status"
