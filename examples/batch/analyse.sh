#!/bin/sh
# One job of a batch analysis: the optics of one run directory, with its moments saved
# beside its tracks for the merge that follows every job.
#
#     analyse.sh RUN_DIR [THREADS]
#
# Writes RUN_DIR/twiss.optics.csv, its record RUN_DIR/twiss.optics.json and the
# moments RUN_DIR/twiss.moments.json. THREADS defaults to the processors the job may
# run on.
set -eu
dir=$1
threads=${2:+-j $2}
# shellcheck disable=SC2086 # an empty $threads is no argument at all
exec twiss-optics "$dir" $threads -q -o "$dir/twiss.optics.csv" \
  --save-moments "$dir/twiss.moments.json"
