#!/usr/bin/env bash
# Runs every fuzz target for SECONDS seconds, starting from its committed seed corpus.
# New inputs go to BUILD_DIR/corpus/<target>; a finding stops the run with its input
# saved as BUILD_DIR/crash-... (reproduce with: BUILD_DIR/bin/<target> FILE).
#
#   fuzz/run.sh BUILD_DIR SECONDS
set -euo pipefail
build=$(cd "$1" && pwd)
seconds=$2
seeds="$(cd "$(dirname "$0")" && pwd)/corpus"
for target in ArgHashFuzz UnitsValueFuzz EvaluatorFuzz RotationFuzz MacroExpandFuzz \
  CoordinatesFileFuzz SampleLineFuzz TrackLineFuzz LineHeadFuzz OpticsOptionsFuzz SpeciesListFuzz \
  ZstdTracksFuzz GzipTracksFuzz XzTracksFuzz MomentsFileFuzz; do
  mkdir -p "$build/corpus/$target"
  echo "== $target ($seconds s)"
  (cd "$build" && "$build/bin/$target" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2048 \
    -max_len=4096 -print_final_stats=1 "$build/corpus/$target" "$seeds/$target" 2>&1 |
    grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb|#[0-9]+ +DONE)|ERROR|SUMMARY|Test unit written' ||
    true)
  # A finding leaves a crash-, leak-, timeout- or oom- file behind.
  findings=$(find "$build" -maxdepth 1 \( -name 'crash-*' -o -name 'leak-*' -o -name 'timeout-*' \
    -o -name 'oom-*' \) -print)
  if [ -n "$findings" ]; then
    echo "fuzz: $target found a problem: $findings"
    exit 1
  fi
done
