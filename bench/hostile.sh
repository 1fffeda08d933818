#!/usr/bin/env bash
# Times twiss on hostile run directories: each must end with its normal report or
# message, in bounded time and memory.
#
#   bench/hostile.sh BUILD_DIR
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

case_dir() { # name: a fresh run directory on a straight beamline
  mkdir -p "$work/$1"
  printf '%%bcstart s=0m\n' >"$work/$1/beamlineCoordinates.txt"
  printf '1000mm 100mm\n' >"$work/$1/sampleS.txt"
  : >"$work/$1/AllTracks.txt"
  echo "$work/$1"
}

row() { # label, directory
  local out
  out=$(cd "$2" && /usr/bin/time -f "%e %M" "$build/bin/twiss" 2>&1 >/dev/null | tail -n 1) || true
  read -r secs kb <<<"$out"
  printf '| %-42s | %7.2f s | %6.1f MB |\n' "$1" "$secs" "$(echo "$kb / 1024" | bc -l)"
}

echo "| input                                      |    time |   peak |"
echo "|--------------------------------------------|--------:|-------:|"
d=$(case_dir huge-line)
head -c 50000000 /dev/zero | tr '\0' '7' >"$d/AllTracks.txt"
row "one 50 MB line without newline" "$d"

d=$(case_dir signed-line)
awk 'BEGIN { for (i = 0; i < 4166667; i++) printf "+1234567890 " }' >"$d/AllTracks.txt"
row "one 50 MB line of signed numbers" "$d"

d=$(case_dir long-fraction)
{ printf '0.'; head -c 50000000 /dev/zero | tr '\0' '3'; printf ' 2 3\n'; } >"$d/AllTracks.txt"
row "one 50 MB fraction (the line read whole)" "$d"

d=$(case_dir nested)
awk 'BEGIN { s = ""; for (i = 0; i < 100000; i++) s = s "("; t = s; gsub(/\(/, ")", t);
             print s "1500mm" t " 100mm" }' >"$d/sampleS.txt"
row "sampleS line of 100000 nested parentheses" "$d"

d=$(case_dir terms)
awk 'BEGIN { s = "0mm"; for (i = 0; i < 100000; i++) s = s "+0.015mm"; print s " 100mm" }' \
  >"$d/sampleS.txt"
row "sampleS expression of 100000 terms" "$d"

d=$(case_dir segments)
awk 'BEGIN { print "%bcstart s=0m";
             for (i = 1; i <= 10000; i++) printf "%%bcbend radius=0m angle=0.0001rad s=%dmm\n", 2 * i }' \
  >"$d/beamlineCoordinates.txt"
awk 'BEGIN { for (i = 0; i < 10000; i++) printf "%dmm 100mm\n", 1 + 2 * i }' >"$d/sampleS.txt"
row "10000 segments and 10000 planes" "$d"

d=$(case_dir gigabyte)
awk 'BEGIN { for (z = 0; z < 2000; z += 100) printf "0.125 -0.25 %d 0.001 0.002 200 1.5 -13 1 %d 0 1\n", z, z / 100 }' \
  >"$d/block"
while [ "$(stat -c %s "$d/AllTracks.txt")" -lt 1000000000 ]; do
  cat "$d/block" "$d/block" "$d/block" "$d/block" "$d/block" "$d/block" "$d/block" "$d/block" \
    >>"$d/AllTracks.txt"
  cat "$d/AllTracks.txt" "$d/AllTracks.txt" >"$d/double" && mv "$d/double" "$d/AllTracks.txt"
done
row "1 GB track file" "$d"
