#!/usr/bin/env bash
# The man pages render without warnings, and name every option that the tools' own
# help texts list.
#   tests/man/run.sh MAN_DIR TWISS_OPTICS
set -euo pipefail
pages=$(cd "$1" && pwd)
optics=$2
command -v man >/dev/null || { echo "skipped: man is not installed"; exit 77; }
for page in twiss.1 twiss-optics.1; do
  warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$pages/$page" 2>&1 >/dev/null)
  [ -z "$warnings" ] || { echo "$page: $warnings"; exit 1; }
done
# The OPTIONS section alone: an option named elsewhere in passing is not documented.
rendered=$(LC_ALL=C.UTF-8 MANWIDTH=200 man -l "$pages/twiss-optics.1" 2>/dev/null |
  awk '/^OPTIONS/ { on = 1; next } /^[A-Z]/ { on = 0 } on')
for option in $("$optics" --help | grep -oE -- '--[a-z-]+' | sort -u); do
  grep -qF -- "$option" <<<"$rendered" || { echo "twiss-optics.1 lacks $option"; exit 1; }
done
rendered=$(LC_ALL=C.UTF-8 MANWIDTH=200 man -l "$pages/twiss.1" 2>/dev/null)
for text in -d --summary cut= TWISS_THREADS twiss.calc.txt sampleS.txt AllTracks.txt \
  beamlineCoordinates.txt "EXIT STATUS"; do
  grep -qF -- "$text" <<<"$rendered" || { echo "twiss.1 lacks $text"; exit 1; }
done
echo "man pages render cleanly and name every option"
