#!/bin/sh
# The job that comes after the array of slurm_submit.sh: its status is 0 when every job of the list is good.
# shellcheck disable=SC2046  # a file a word
exec "$EETOOL" batch "$LIST" --merge $(seq -f "$DIR/r%g.jsonl" 0 $((SHARDS - 1))) >"$DIR/merged.jsonl"
