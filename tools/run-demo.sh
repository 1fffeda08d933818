#!/usr/bin/env bash
# Runs the tool on the bundled example in a scratch directory and shows its report.
set -euo pipefail
build=${1:-build}
"$build/bin/twiss" --summary
