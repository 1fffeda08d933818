#!/bin/sh
# Submits one array task per line of runs.txt, then the merge, which waits for all of
# them to succeed. Run it in the folder that holds runs.txt and the scripts.
set -eu
mkdir -p logs
count=$(grep -c . runs.txt)
array=$(sbatch --parsable --array=0-$((count - 1)) analyse.sbatch)
sbatch --dependency=afterok:"$array" merge.sbatch
