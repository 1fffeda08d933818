#!/usr/bin/env bash
# Builds the Debian package of the build tree, unpacks it (dpkg -x) into a temporary
# root and runs both tools from there on a copy of the bundled example: their output
# must be the example's committed report and table.
#   tests/package/run.sh BUILD_DIR EXAMPLE_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
example=$(cd "$2" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
(cd "$work" && cpack --config "$build/CPackConfig.cmake" -B "$work/out" >/dev/null)
deb=$(ls "$work"/out/twiss_*.deb)
dpkg-deb -f "$deb" Package Version Depends
dpkg-deb -c "$deb" | awk '{ print $6 }' | grep -E 'bin/|man1/|libnexil|NexilConfig.cmake|nexil/Units.h|twiss-optics/' | sort
dpkg -x "$deb" "$work/root"
mkdir "$work/run"
cp "$example"/{beamlineCoordinates.txt,sampleS.txt,AllTracks.txt} "$work/run/"
cd "$work/run"
"$work/root/usr/bin/twiss" >/dev/null 2>&1
"$work/root/usr/bin/twiss-optics" -q --plot envelope.svg --particles p.h5
test -s envelope.svg && test -s p.h5
cmp twiss.calc.txt "$example/twiss.calc.txt"
cmp twiss.optics.csv "$example/twiss.optics.csv"
echo "both tools ran from the unpacked package"
