#!/usr/bin/env bash
# Runs twiss on a copy of the bundled example and shows the report it writes.
set -euo pipefail
build=${1:-build}
top=$(cd "$(dirname "$0")/.." && pwd)
scratch="$top/demo-run"
rm -rf "$scratch"
mkdir -p "$scratch"
cp "$top"/examples/beamline/{beamlineCoordinates.txt,sampleS.txt,AllTracks.txt} "$scratch"
cd "$scratch"
"$top/$build/bin/twiss"
echo "---- $scratch/twiss.calc.txt"
cat twiss.calc.txt
