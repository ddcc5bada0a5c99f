#!/bin/sh
# One task of slurm_submit.sh. SIGTERM, which Slurm sends before it kills, ends it after the frames in flight.
exec "$EETOOL" batch "$LIST" --results "$DIR/r$SLURM_ARRAY_TASK_ID.jsonl" \
    --shard "$SLURM_ARRAY_TASK_ID/$SLURM_ARRAY_TASK_COUNT" --jobs "$SLURM_CPUS_PER_TASK" --resume
