#!/usr/bin/env bash
# Times twiss on generated run directories, side by side with the straightforward
# reader (twiss-reference) and a bare from_chars pass over the same track file.
#
#   bench/run.sh BUILD_DIR [MEGABYTES] [RUNS]
#
# Prints one row per case: throughput (MB/s), steps per second and peak memory of
# twiss, the reference's and the bare parse's throughput, and the ratios; then the
# same binary pinned to one core (taskset -c 0), its ratios, and the gain of the second
# core. The reference is slow with many planes, so it reads a prefix of the file there.
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
megabytes=${2:-500}
runs=${3:-3}
data="$(cd "$(dirname "$0")/.." && pwd)/bench-data"
mkdir -p "$data"

generate() { # name, then make-run options
  local name=$1
  shift
  if [ ! -s "$data/$name/AllTracks.txt" ]; then
    "$build/bin/make-run" --force "$data/$name" --megabytes "$megabytes" --length 20000 --step 100 \
      --general --digits 12 "$@" >/dev/null
  fi
}

planes() { # directory, count: planes evenly over 20 m with a 100 mm radius cut
  awk -v n="$2" 'BEGIN { for (i = 0; i < n; i++) printf "%dmm 100mm\n", (i + 0.5) * 20000 / n }' \
    >"$1/sampleS.txt"
}

median() { sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# Reads the track file just before a timed run: the page cache of some machines drops
# files within seconds, and a cold cache would time the disk, not the program.
warm() { cat "$1/AllTracks.txt" >/dev/null; }

# Seconds and peak kilobytes of one command run in a directory.
timed() {
  local dir=$1
  shift
  (cd "$dir" && /usr/bin/time -f "%e %M" "$@" >/dev/null 2>/tmp/bench.time.$$) || true
  tail -n 1 /tmp/bench.time.$$
}

case_row() { # label, directory, plane count, reference megabytes
  local label=$1 dir=$2 count=$3 refmb=$4
  planes "$dir" "$count"
  local bytes steps
  bytes=$(stat -c %s "$dir/AllTracks.txt")
  steps=$(grep -vc '^#' "$dir/AllTracks.txt")
  local secs=() mems=() bare=() ref=() one=()
  for _ in $(seq "$runs"); do
    read -r s m < <(warm "$dir" && timed "$dir" "$build/bin/twiss")
    secs+=("$s")
    mems+=("$m")
    read -r s _ < <(warm "$dir" && timed "$dir" taskset -c 0 "$build/bin/twiss")
    one+=("$s")
    read -r s _ < <(warm "$dir" && timed "$dir" "$build/bin/bare-parse" AllTracks.txt)
    bare+=("$s")
  done
  # The reference on a prefix of refmb megabytes, in a directory of its own.
  local refdir="$data/reference-prefix"
  rm -rf "$refdir" && mkdir -p "$refdir"
  cp "$dir/beamlineCoordinates.txt" "$dir/sampleS.txt" "$refdir/"
  head -c "$((refmb * 1000000))" "$dir/AllTracks.txt" | sed '$d' >"$refdir/AllTracks.txt"
  local refbytes
  refbytes=$(stat -c %s "$refdir/AllTracks.txt")
  for _ in $(seq "$runs"); do
    read -r s _ < <(warm "$refdir" && timed "$refdir" "$build/bin/twiss-reference")
    ref+=("$s")
  done
  local t o b r m
  t=$(printf '%s\n' "${secs[@]}" | median)
  o=$(printf '%s\n' "${one[@]}" | median)
  b=$(printf '%s\n' "${bare[@]}" | median)
  r=$(printf '%s\n' "${ref[@]}" | median)
  m=$(printf '%s\n' "${mems[@]}" | sort -g | tail -n 1)
  awk -v label="$label" -v bytes="$bytes" -v steps="$steps" -v t="$t" -v o="$o" -v b="$b" \
    -v r="$r" -v refbytes="$refbytes" -v m="$m" 'BEGIN {
      tw = bytes / t / 1e6; on = bytes / o / 1e6; bp = bytes / b / 1e6; rf = refbytes / r / 1e6
      printf "| %-22s | %6.0f | %10.3g | %7.1f | %6.1f | %5.0f | %6.1fx | %5.0f%% | %6.0f | %6.1fx | %5.0f%% | %5.2fx |\n",
        label, tw, steps / t, m / 1024, rf, bp, tw / rf, 100 * tw / bp, on, on / rf,
        100 * on / bp, tw / on }'
}

generate straight --straight
generate bent
echo "Two cores: the tool as it runs. One core: the same binary pinned with taskset -c 0."
echo
echo "| case                   | MB/s | steps/s | peak MB | ref MB/s | bare MB/s | vs ref | vs bare | 1 core MB/s | 1 core vs ref | 1 core vs bare | 2 cores / 1 |"
echo "|------------------------|-----:|--------:|--------:|---------:|----------:|-------:|--------:|------------:|--------------:|---------------:|------------:|"
case_row "straight, 10 planes" "$data/straight" 10 "$megabytes"
case_row "straight, 1000 planes" "$data/straight" 1000 50
case_row "straight, 10000 planes" "$data/straight" 10000 10
case_row "bent, 10 planes" "$data/bent" 10 "$megabytes"
case_row "bent, 1000 planes" "$data/bent" 1000 50
case_row "bent, 10000 planes" "$data/bent" 10000 10
