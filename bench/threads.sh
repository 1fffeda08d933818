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
  "$build/bin/make-run" "$dir" --megabytes "$megabytes" --length 20000 --step 100 \
    --general --digits 12 --straight >/dev/null
fi

planes() { # count: planes evenly over 20 m with a 100 mm radius cut
  awk -v n="$1" 'BEGIN { for (i = 0; i < n; i++) printf "%dmm 100mm\n", (i + 0.5) * 20000 / n }' \
    >"$dir/sampleS.txt"
}
median() { sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
warm() { cat "$dir/AllTracks.txt" >/dev/null; }
timed() { # threads, command...: median seconds and largest peak kilobytes over the runs
  local threads=$1 secs=() mems=()
  shift
  for _ in $(seq "$runs"); do
    warm
    (cd "$dir" && TWISS_THREADS=$threads /usr/bin/time -f "%e %M" "$@" >/dev/null \
      2>/tmp/bench.time.$$) || true
    read -r s m < <(tail -n 1 /tmp/bench.time.$$)
    secs+=("$s")
    mems+=("$m")
  done
  echo "$(printf '%s\n' "${secs[@]}" | median) $(printf '%s\n' "${mems[@]}" | sort -g | tail -n 1)"
}

bytes=$(stat -c %s "$dir/AllTracks.txt")
echo "Threads set with TWISS_THREADS on a machine of $(nproc) processors; MB/s (peak MB)."
echo
echo "| planes | tool         | 1 thread | 2 threads | 4 threads | 8 threads | 8 / 2 |"
echo "|-------:|--------------|---------:|----------:|----------:|----------:|------:|"
declare -A one
for count in 10 1000 10000; do
  planes "$count"
  for tool in twiss twiss-optics; do
    cells=() t2=0 t8=0
    for threads in 1 2 4 8; do
      args=()
      [ "$tool" = twiss-optics ] && args=(-q -o /dev/null)
      read -r s m < <(timed "$threads" "$build/bin/$tool" "${args[@]}")
      cells+=("$(awk -v b="$bytes" -v s="$s" -v m="$m" 'BEGIN { printf "%.0f (%.0f)", b / s / 1e6, m / 1024 }')")
      [ "$threads" = 1 ] && one[$tool.$count]=$s
      [ "$threads" = 2 ] && t2=$s
      [ "$threads" = 8 ] && t8=$s
    done
    printf '| %6s | %-12s | %8s | %9s | %9s | %9s | %4.0f%% |\n' "$count" "$tool" "${cells[@]}" \
      "$(awk -v a="$t2" -v b="$t8" 'BEGIN { print 100 * a / b }')"
  done
done

# The stages on one thread: the bare conversion of every line, twiss at 10 planes (the
# conversion plus the caller's serial work: taking each step, the track changes, a few
# planes), and the crossing tests that more planes add. A machine of P processors
# shares the conversion and the crossing tests; the caller's part stays serial.
warm
read -r bare _ < <(cd "$dir" && /usr/bin/time -f "%e %M" "$build/bin/bare-parse" AllTracks.txt \
  2>&1 >/dev/null | tail -n 1)
steps=$(grep -vc '^#' "$dir/AllTracks.txt")
echo
echo "Model: one-thread costs per step (ns) and the expected twiss throughput (MB/s)."
echo
echo "| planes | convert | serial | crossings | 8 cores | 16 cores | 64 cores | limit at 64 |"
echo "|-------:|--------:|-------:|----------:|--------:|---------:|---------:|-------------|"
for count in 10 1000 10000; do
  awk -v n="$steps" -v b="$bytes" -v bare="$bare" -v t10="${one[twiss.10]}" \
    -v t="${one[twiss.$count]}" -v count="$count" 'BEGIN {
      convert = bare; serial = t10 - bare; crossing = t - t10
      printf "| %6d | %7.1f | %6.1f | %9.1f |", count, 1e9 * convert / n, 1e9 * serial / n,
        1e9 * crossing / n
      split("8 16 64", cores, " ")
      for (i = 1; i <= 3; i++) {
        p = cores[i]; shared = (convert + crossing) / (p - 1)
        time = shared > serial ? shared : serial
        printf " %7.0f |", b / time / 1e6
        if (p == 64) limit = shared > serial ? "conversion and crossings" : "the serial caller"
      }
      printf " %s |\n", limit }'
done
