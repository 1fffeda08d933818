#!/usr/bin/env bash
# Runs twiss and twiss-optics on a copy of the bundled example and shows what they write.
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
"$top/$build/bin/twiss-optics" --particles beam.h5 --plot envelope.png
echo "---- $scratch/twiss.optics.csv (s, n, sigma_x, emit_x, beta_x, alpha_x, status)"
cut -d, -f1,2,10,37,42,44,59 twiss.optics.csv
echo "---- $scratch/envelope.png: the plot"
echo "---- $scratch/beam.h5, read with h5py by examples/read_particles.py"
/usr/bin/python3 "$top/examples/read_particles.py"
