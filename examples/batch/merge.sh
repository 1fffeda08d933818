#!/bin/sh
# The last step of a batch analysis: the moments of every job merged into the table
# that one run over all their tracks would write.
#
#     merge.sh RUN_LIST OUTPUT
#
# RUN_LIST holds one run directory a line (the list the jobs were given); OUTPUT is the
# table (CSV), with its record beside it as .json.
set -eu
list=$1
output=$2
set --
while IFS= read -r dir; do
  [ -n "$dir" ] && set -- "$@" "$dir/twiss.moments.json"
done < "$list"
exec twiss-optics --merge "$@" -o "$output"
