#!/bin/sh
#SBATCH --job-name=csrt-merge --output=out/merge.log
# Not after "afterok": a shard that was killed and repeated counts as failed there. merge names a shard that is missing,
# and ends with status 1.
exec csrt-track merge out/*.json --json all.json --html all.html
