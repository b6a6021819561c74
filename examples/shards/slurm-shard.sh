#!/bin/sh
#SBATCH --job-name=csrt-shard --array=1-4 --requeue --open-mode=append --output=out/shard-%a.log
# One shard of an evaluation; the folder, with the clip, its truth and out/, is one that all nodes share. Together with
# slurm-merge.sh, which runs when all are through:
#   array=$(sbatch --parsable slurm-shard.sh) && sbatch --dependency=afterany:$array slurm-merge.sh
csrt-track evaluate clip.avi --truth clip.csv --pace video \
  --shard "$SLURM_ARRAY_TASK_ID/$SLURM_ARRAY_TASK_COUNT" --json "out/$SLURM_ARRAY_TASK_ID.json"
status=$?
# Slurm itself repeats what a lost node had. 137: killed, for want of memory as a rule; that is repeated three times.
if [ "$status" -eq 137 ] && [ "${SLURM_RESTART_COUNT:-0}" -lt 3 ]; then
  scontrol requeue "${SLURM_ARRAY_JOB_ID}_$SLURM_ARRAY_TASK_ID"
fi
exit "$status"
