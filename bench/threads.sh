#!/usr/bin/env bash
# Times both tools at 1, 2, 4 and 8 threads (TWISS_THREADS) with 10, 1000 and 10000
# planes on the benchmark's straight run, then fits a model of the scaling beyond this
# machine from the one-thread costs of the stages.
#
#   bench/threads.sh BUILD_DIR [MEGABYTES] [RUNS]
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
megabytes=${2:-500}
runs=${3:-3}
data="$(cd "$(dirname "$0")/.." && pwd)/bench-data"
dir="$data/straight"
if [ ! -s "$dir/AllTracks.txt" ]; then
  mkdir -p "$data"
  "$build/bin/make-run" --force "$dir" --megabytes "$megabytes" --length 20000 --step 100 \
    --general --digits 12 --straight >/dev/null
fi

planes() { # count: planes evenly over 20 m with a 100 mm radius cut
  awk -v n="$1" 'BEGIN { for (i = 0; i < n; i++) printf "%dmm 100mm\n", (i + 0.5) * 20000 / n }' \
    >"$dir/sampleS.txt"
}
warm() { cat "$dir/AllTracks.txt" >/dev/null; }
# The fastest of the runs, and the largest peak: the machine's other work only ever
# slows a run down, so the fastest run is the one least disturbed.
timed() { # threads, command...: seconds and peak kilobytes of one run
  local threads=$1
  shift
  warm
  (cd "$dir" && TWISS_THREADS=$threads /usr/bin/time -f "%e %M" "$@" >/dev/null \
    2>/tmp/bench.time.$$) || true
  tail -n 1 /tmp/bench.time.$$
}

bytes=$(stat -c %s "$dir/AllTracks.txt")
echo "Threads set with TWISS_THREADS on a machine of $(nproc) processors; MB/s of the fastest of"
echo "$runs runs (largest peak MB)."
echo
echo "| planes | tool         | 1 thread | 2 threads | 4 threads | 8 threads | 8 / 2 |"
echo "|-------:|--------------|---------:|----------:|----------:|----------:|------:|"
declare -A one
for count in 10 1000 10000; do
  planes "$count"
  for tool in twiss twiss-optics; do
    args=()
    [ "$tool" = twiss-optics ] && args=(-q -o /dev/null)
    declare -A best=() peak=()
    # The thread counts take turns, run after run, so that a slow spell of the machine
    # falls on all of them.
    for _ in $(seq "$runs"); do
      for threads in 1 2 4 8; do
        read -r s m < <(timed "$threads" "$build/bin/$tool" "${args[@]}")
        if [ -z "${best[$threads]:-}" ] || awk -v a="$s" -v b="${best[$threads]}" 'BEGIN { exit !(a < b) }'; then
          best[$threads]=$s
        fi
        [ "${peak[$threads]:-0}" -lt "$m" ] && peak[$threads]=$m
      done
    done
    cells=()
    for threads in 1 2 4 8; do
      cells+=("$(awk -v b="$bytes" -v s="${best[$threads]}" -v m="${peak[$threads]}" 'BEGIN { printf "%.0f (%.0f)", b / s / 1e6, m / 1024 }')")
    done
    one[$tool.$count]=${best[1]}
    printf '| %6s | %-12s | %8s | %9s | %9s | %9s | %4.0f%% |\n' "$count" "$tool" "${cells[@]}" \
      "$(awk -v a="${best[2]}" -v b="${best[8]}" 'BEGIN { print 100 * a / b }')"
    unset best peak
  done
done

# The stages on one thread, from a profile of twiss (perf, cpu-clock): the kernel's
# share (reading the file: one converter at a time reads, under the reader's lock), the
# conversion of the lines, the crossing tests, and the rest, which the caller does alone
# (taking the steps in order, the track changes, handing the moves over). On P
# processors the conversion and the crossing tests are shared; the reading and the
# caller's part are not: T(P) = T(1) max(serial, reading, 1 / P).
if ! perf stat -e task-clock true >/dev/null 2>&1; then
  echo
  echo "No model: perf cannot profile on this machine."
  exit 0
fi
echo
echo "Model: one-thread shares of twiss's run time (perf) and the expected throughput (MB/s)."
echo
echo "| planes | reading | converting | crossings | caller | 8 cores | 16 cores | 64 cores | limit at 64 |"
echo "|-------:|--------:|-----------:|----------:|-------:|--------:|---------:|---------:|-------------|"
for count in 10 1000 10000; do
  planes "$count"
  warm
  (cd "$dir" && TWISS_THREADS=1 perf record -q -e cpu-clock -o /tmp/bench.perf.$$ \
    "$build/bin/twiss" >/dev/null 2>&1)
  perf report -i /tmp/bench.perf.$$ --no-children --sort sym --stdio -g none 2>/dev/null |
    grep -v '^#' | grep '%' |
    awk -v count="$count" -v t="${one[twiss.$count]}" -v b="$bytes" '{
        share = $1; sub("%", "", share); kernel = $2 == "[k]"; $1 = ""; $2 = ""
        if (kernel) read += share
        else if ($0 ~ /convert|parseFast|memchr|from_chars|readRawTrackLine|strtod/) conv += share
        else if ($0 ~ /CrossingSelector|PlaneGeometry|BCSample|forEachTouched/) cross += share
        else serial += share
      }
      END {
        total = read + conv + cross + serial
        read /= total; conv /= total; cross /= total; serial /= total
        printf "| %6d | %6.1f%% | %9.1f%% | %8.1f%% | %5.1f%% |", count, 100 * read, 100 * conv,
          100 * cross, 100 * serial
        split("8 16 64", cores, " ")
        for (i = 1; i <= 3; i++) {
          p = cores[i]; f = 1 / p; limit = "conversion and crossings"
          if (read > f) { f = read; limit = "reading the file" }
          if (serial > f) { f = serial; limit = "the caller" }
          printf " %7.0f |", b / (t * f) / 1e6
        }
        printf " %s |\n", limit
      }'
  rm -f /tmp/bench.perf.$$
done
