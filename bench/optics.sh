#!/usr/bin/env bash
# Times twiss-optics beside twiss on the benchmark's generated run directories, and the
# merge of many moment files.
#
#   bench/optics.sh BUILD_DIR [MEGABYTES] [RUNS] [MERGE_FILES]
#
# Prints one row per case: both tools' throughput (MB/s), their ratio and the peak
# memory of each; the particle file's cost; a plane of a million crossings taken in
# passes (its amplitudes, slices and cores); each compressed form of the track file against the plain one; then merges of up to MERGE_FILES moment files of 1000 planes,
# binary and JSON.
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
megabytes=${2:-500}
runs=${3:-3}
mergeFiles=${4:-1000}
data="$(cd "$(dirname "$0")/.." && pwd)/bench-data"
mkdir -p "$data"

if [ ! -s "$data/straight/AllTracks.txt" ]; then
  "$build/bin/make-run" --force "$data/straight" --megabytes "$megabytes" --length 20000 --step 100 \
    --general --digits 12 --straight >/dev/null
fi

planes() { # directory, count: planes evenly over 20 m with a 100 mm radius cut
  awk -v n="$2" 'BEGIN { for (i = 0; i < n; i++) printf "%dmm 100mm\n", (i + 0.5) * 20000 / n }' \
    >"$1/sampleS.txt"
}
median() { printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
largest() { printf '%s\n' "$@" | sort -g | tail -n 1; }
warm() { cat "$1/AllTracks.txt" >/dev/null; }
timed() { # directory, command...: seconds and peak kilobytes
  local dir=$1
  shift
  (cd "$dir" && /usr/bin/time -f "%e %M" "$@" >/dev/null 2>/tmp/bench.time.$$) || true
  tail -n 1 /tmp/bench.time.$$
}

row() { # label, directory, plane count
  local dir=$2
  planes "$dir" "$3"
  local bytes tw=() om=() op=() tm=()
  bytes=$(stat -c %s "$dir/AllTracks.txt")
  for _ in $(seq "$runs"); do
    read -r s m < <(warm "$dir" && timed "$dir" "$build/bin/twiss")
    tw+=("$s")
    tm+=("$m")
    read -r s m < <(warm "$dir" && timed "$dir" "$build/bin/twiss-optics" -q)
    op+=("$s")
    om+=("$m")
  done
  awk -v label="$1" -v bytes="$bytes" -v t="$(median "${tw[@]}")" -v o="$(median "${op[@]}")" \
    -v mt="$(largest "${tm[@]}")" -v mo="$(largest "${om[@]}")" 'BEGIN {
    printf "| %-22s | %6.0f | %6.0f | %5.0f%% | %6.1f | %6.1f |\n", label, bytes / t / 1e6,
      bytes / o / 1e6, 100 * t / o, mt / 1024, mo / 1024 }'
}

echo "| case                   | twiss MB/s | optics MB/s | optics / twiss | twiss peak MB | optics peak MB |"
echo "|------------------------|-----------:|------------:|---------------:|--------------:|---------------:|"
row "straight, 10 planes" "$data/straight" 10
row "straight, 1000 planes" "$data/straight" 1000
row "straight, 10000 planes" "$data/straight" 10000

# The measures at 10 planes, of the muons (one species: the measures of the crossings one
# by one need a mass): each one beside the default, and all of them, median throughput,
# its share of the default's, and the peak memory.
measures() {
  local dir="$data/straight" bytes base=""
  planes "$dir" 10
  bytes=$(stat -c %s "$dir/AllTracks.txt")
  echo
  echo "| --measures             | optics MB/s | of the default | optics peak MB |"
  echo "|------------------------|------------:|---------------:|---------------:|"
  for chosen in 2d 4d 6d longitudinal angular-momentum amplitude core slices all; do
    local times=() mems=()
    for _ in $(seq "$runs"); do
      read -r s m < <(warm "$dir" && timed "$dir" "$build/bin/twiss-optics" -q -o "$data/out.csv" \
        --species mu+ --measures "$chosen")
      times+=("$s")
      mems+=("$m")
    done
    local t
    t=$(median "${times[@]}")
    base=${base:-$t}
    awk -v label="$chosen" -v bytes="$bytes" -v t="$t" -v b="$base" \
      -v m="$(largest "${mems[@]}")" 'BEGIN {
      printf "| %-22s | %11.0f | %13.0f%% | %14.1f |\n", label, bytes / t / 1e6, 100 * b / t,
        m / 1024 }'
  done
}
measures

# The particle file at 10 planes: the run with --particles against the run without,
# median times, and the peak memory with it.
particles() {
  local dir="$data/straight" without=() with=() mems=()
  planes "$dir" 10
  for _ in $(seq "$runs"); do
    read -r s _ < <(warm "$dir" && timed "$dir" "$build/bin/twiss-optics" -q -o "$data/out.csv")
    without+=("$s")
    read -r s m < <(warm "$dir" && timed "$dir" "$build/bin/twiss-optics" -q -o "$data/out.csv" \
      --particles "$data/bench.h5")
    with+=("$s")
    mems+=("$m")
  done
  local size
  size=$(du -m "$data/bench.h5" | cut -f1)
  rm -f "$data/bench.h5"
  echo
  awk -v a="$(median "${without[@]}")" -v b="$(median "${with[@]}")" -v m="$(largest "${mems[@]}")" \
    -v size="$size" 'BEGIN {
    printf "Particle file at 10 planes: %.2f s against %.2f s without (%.2fx), peak %.1f MB, file %d MB\n",
      b, a, b / a, m / 1024, size }'
}
particles

# A merge of two jobs' particle files (the straight run as both jobs) with the measures
# of the crossings one by one, against one run over both, at 10 planes: medians, peaks.
particleMerge() {
  local dir="$data/straight" measures="amplitude,core,slices" one=() merged=() m1=() m2=()
  planes "$dir" 10
  "$build/bin/twiss-optics" "$dir" -q -o "$data/out.csv" --measures "$measures" --species mu+ \
    --particles "$data/job.h5"
  for _ in $(seq "$runs"); do
    read -r s m < <(warm "$dir" && timed "$data" "$build/bin/twiss-optics" straight straight -q \
      -o "$data/out.csv" --measures "$measures" --species mu+)
    one+=("$s")
    m1+=("$m")
    read -r s m < <(timed "$data" "$build/bin/twiss-optics" --merge job.h5 job.h5 -q -o "$data/out.csv")
    merged+=("$s")
    m2+=("$m")
  done
  local size
  size=$(du -m "$data/job.h5" | cut -f1)
  rm -f "$data/job.h5"
  echo
  awk -v a="$(median "${one[@]}")" -v b="$(median "${merged[@]}")" -v p="$(largest "${m1[@]}")" \
    -v q="$(largest "${m2[@]}")" -v size="$size" 'BEGIN {
    printf "Merge of two particle files of %d MB (%s): %.2f s, peak %.1f MB; one run over both %.2f s, peak %.1f MB\n",
      size, "amplitude,core,slices", b, q / 1024, a, p / 1024 }'
}
particleMerge

# One plane crossed by a million muons of a Gaussian beam, more than a plane's crossings
# read back at once: its amplitudes come from passes over its blocks. Medians, peaks.
largePlane() {
  local dir="$data/large"
  if [ ! -s "$dir/AllTracks.txt" ]; then
    mkdir -p "$dir"
    printf '%%bcstart s=0m\n' >"$dir/beamlineCoordinates.txt"
    awk 'BEGIN { srand(7); pi = 3.141592653589793
      for (k = 1; k <= 1000000; k++) {
        for (i = 0; i < 4; i++) {
          u = rand(); if (u < 1e-12) u = 1e-12
          g[i] = sqrt(-2 * log(u)) * cos(2 * pi * rand())
        }
        x = 3 * g[0]; y = 2 * g[1]; px = 2 * g[2] + 0.3 * g[0]; py = 1.5 * g[3]
        printf "%.6f %.6f 950 %.6f %.6f 200 0 -13 1 %d 0 1\n", x, y, px, py, k
        printf "%.6f %.6f 1050 %.6f %.6f 200 1 -13 1 %d 0 1\n", x + px / 2, y + py / 2, px, py, k
      } }' >"$dir/AllTracks.txt"
  fi
  printf '1000mm 1000mm\n' >"$dir/sampleS.txt"
  # Each measure taken alone, 2d being the default.
  local line="A plane of a million crossings:"
  for chosen in 2d amplitude slices core; do
    local times=() mems=()
    for _ in $(seq "$runs"); do
      read -r s m < <(warm "$dir" && timed "$dir" "$build/bin/twiss-optics" -q -o "$data/out.csv" \
        --measures "$chosen")
      times+=("$s")
      mems+=("$m")
    done
    line+=$(awk -v c="$chosen" -v t="$(median "${times[@]}")" -v m="$(largest "${mems[@]}")" \
      'BEGIN { printf " %s %.2f s, peak %.1f MB;", c, t, m / 1024 }')
  done
  echo
  echo "${line%;}"
}
largePlane

# The track file compressed by each tool (default level; zstd and xz on every core), read
# at 10 planes with --tracks, against the plain file: MB/s of the text, median of the runs.
compressed() {
  local dir="$data/straight" bytes plainTimes=()
  planes "$dir" 10
  bytes=$(stat -c %s "$dir/AllTracks.txt")
  for _ in $(seq "$runs"); do
    read -r s _ < <(warm "$dir" && timed "$dir" "$build/bin/twiss-optics" -q -o "$data/out.csv")
    plainTimes+=("$s")
  done
  local plain
  plain=$(median "${plainTimes[@]}")
  echo
  echo "| track file      | MB on disk | text MB/s | vs plain | peak MB |"
  echo "|-----------------|-----------:|----------:|---------:|--------:|"
  awk -v b="$bytes" -v t="$plain" 'BEGIN { printf "| plain           | %10.0f | %9.0f |     100%% |         |\n", b / 1e6, b / t / 1e6 }'
  for kind in "zstd zst -T0" "gzip gz" "xz xz -T0"; do
    set -- $kind
    local file="$dir/AllTracks.txt.$2" times=() mems=()
    [ -s "$file" ] || "$1" ${3:-} -c "$dir/AllTracks.txt" >"$file"
    for _ in $(seq "$runs"); do
      read -r s m < <(cat "$file" >/dev/null && timed "$dir" "$build/bin/twiss-optics" -q \
        -o "$data/out.csv" --tracks "$file")
      times+=("$s")
      mems+=("$m")
    done
    awk -v name="AllTracks.txt.$2" -v b="$bytes" -v size="$(stat -c %s "$file")" \
      -v t="$(median "${times[@]}")" -v p="$plain" -v m="$(largest "${mems[@]}")" 'BEGIN {
      printf "| %-15s | %10.0f | %9.0f | %7.0f%% | %7.1f |\n", name, size / 1e6, b / t / 1e6,
        100 * p / t, m / 1024 }'
  done
}
compressed

# Moment files of 1000 planes from a small run, copied; then merges of 1/4, 1/2 and all
# of them, in the binary form and in JSON: seconds and peak memory, median of the runs.
merge="$data/merge"
rm -rf "$merge" && mkdir -p "$merge"
"$build/bin/make-run" "$merge" --particles 100 --planes 1000 --length 20000 --straight >/dev/null
echo
echo "| merge of moment files (1000 planes) | files | MB on disk | seconds | peak MB |"
echo "|-------------------------------------|------:|-----------:|--------:|--------:|"
for form in bin json; do
  (cd "$merge" && "$build/bin/twiss-optics" -q -o "$data/out.csv" --save-moments "part1.$form")
  for i in $(seq 2 "$mergeFiles"); do cp "$merge/part1.$form" "$merge/part$i.$form"; done
  for count in $((mergeFiles / 4)) $((mergeFiles / 2)) "$mergeFiles"; do
    files=()
    for i in $(seq 1 "$count"); do files+=("part$i.$form"); done
    times=() mems=()
    for _ in $(seq "$runs"); do
      cat "$merge"/part*."$form" >/dev/null
      read -r s m < <(cd "$merge" && timed . "$build/bin/twiss-optics" -q --merge "${files[@]}" \
        -o merged.csv)
      times+=("$s")
      mems+=("$m")
    done
    size=$(cd "$merge" && du -cm "${files[@]}" | tail -n 1 | cut -f1)
    printf "| %-35s | %5d | %10d | %7.2f | %7.1f |\n" "$form" "$count" "$size" \
      "$(median "${times[@]}")" "$(awk -v m="$(largest "${mems[@]}")" 'BEGIN { print m / 1024 }')"
  done
  rm -f "$merge"/part*."$form"
done
rm -rf "$merge"
rm -f "$data"/out.csv "$data"/out.json "$data"/out.slices.csv
