#!/usr/bin/env bash
# Installs the built tree into a temporary prefix, then configures, builds and runs the
# consumer project against it, as another project would use the library.
#   tests/consumer/run.sh BUILD_DIR BEAMLINE_FILE
set -euo pipefail
build=$1
beamline=$2
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$here" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/build" >/dev/null
shown=$("$work/build/nexil-consumer" "$beamline")
echo "$shown"
[[ $shown =~ ^1700\ mm\;\ s\ =\ 7\ m\ at\ x\ =\ [-0-9.]+\ mm,\ z\ =\ [0-9.]+\ mm$ ]] ||
  { echo "unexpected output of the consumer"; exit 1; }
# What an installed tree holds.
for f in bin/twiss bin/twiss-optics bin/twiss-make-run include/nexil/Units.h \
  lib/cmake/Nexil/NexilConfig.cmake lib/cmake/Nexil/NexilTargets.cmake \
  share/man/man1/twiss.1 share/man/man1/twiss-optics.1 lib/twiss-optics/twiss-optics-pictures.so \
  lib/twiss-optics/twiss-optics-particles.so; do
  test -e "$work/prefix/$f" || { echo "missing from the installed tree: $f"; exit 1; }
done
ls "$work/prefix/lib/libnexil.a" >/dev/null
[ "$("$work/prefix/bin/twiss-optics" --version)" = "twiss-optics 1.1.0" ] ||
  { echo "the installed twiss-optics does not run"; exit 1; }
# The installed tool finds its modules: it draws and writes a particle file.
mkdir "$work/run"
cp "$(dirname "$beamline")"/{beamlineCoordinates.txt,sampleS.txt,AllTracks.txt} "$work/run/"
(cd "$work/run" && "$work/prefix/bin/twiss-optics" -q --plot envelope.svg --particles p.h5)
test -s "$work/run/envelope.svg" && test -s "$work/run/p.h5" ||
  { echo "the installed twiss-optics draws nothing or writes no particle file"; exit 1; }
echo "the installed tree serves another project"
