#!/usr/bin/env bash
# Runs every fuzz target (or the ones named) for the given seconds each, from
# a copy of its seed corpus in a scratch directory that is also its working
# directory: files the commands write and what the fuzzer adds stay out of
# the tree. A target that finds a fault leaves the reproducer in
# <build>/fuzz-artifacts/ and fails the run.
#   tests/fuzz/run.sh <build directory> <seconds> [target...]
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$1 seconds=$2
shift 2
targets=("${@:-cmdline replies smbios image spi_file}")
artifacts=$PWD/$build/fuzz-artifacts failed=()
mkdir -p "$artifacts"
for t in ${targets[*]}; do
  scratch=$(mktemp -d) && mkdir "$scratch/corpus" "$scratch/work" && cp tests/fuzz/corpus/"$t"/* "$scratch/corpus/"
  echo "fuzz: $t for ${seconds}s"
  # Standard error of the commands is dropped; libFuzzer's lines and any
  # sanitizer report still come through.
  if (cd "$scratch/work" && "$OLDPWD/$build/tests/fuzz/fuzz_$t" -max_total_time="$seconds" -timeout=30 \
      -rss_limit_mb=4096 -close_fd_mask=2 -print_final_stats=1 -artifact_prefix="$artifacts/$t-" \
      "$scratch/corpus" >"$scratch/log" 2>&1); then
    grep -E '^#[0-9]+[[:space:]]+DONE|^stat::(number_of_executed_units|average_exec_per_sec|peak_rss_mb)' \
      "$scratch/log" | sed "s/^/fuzz: $t: /"
  else
    tail -n 60 "$scratch/log"
    echo "fuzz: $t FAILED; reproducer in $artifacts" >&2
    failed+=("$t")
  fi
  rm -rf "$scratch"
done
[ ${#failed[@]} -eq 0 ] || { echo "fuzz: faults found by: ${failed[*]}" >&2; exit 1; }
