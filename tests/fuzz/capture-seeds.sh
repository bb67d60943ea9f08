#!/usr/bin/env bash
# Writes the seed corpus of the reply target from the simulator's replies:
# each chosen command line, run against a fresh `raid` machine, as it is and
# with every count and text of the replies at their maximum.
#   cmake --build build-fuzz --target krtsim vmkmgmt krt_fuzz_capture
#   tests/fuzz/capture-seeds.sh [build directory, default build-fuzz]
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${1:-build-fuzz} out=tests/fuzz/corpus/replies
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export KRTSIM_STATE=$scratch/state
krtsim=$PWD/$build/sim/krtsim
rm -rf "$out" && mkdir -p "$out"
# Indexes into the command lines (harness.h): listings and records of every
# kind, events, the SPI log, settings, SMART, Identify, the slot log, the
# inverse state, a namespace and a VD change, a firmware update. The PD
# listing (4) is taken only as it is: at the maximum it asks for 255 records.
for i in 0 3 4 5 6 8 13 14 16 17 20 22 24 29 31 35 38 45; do
  for effect in plain overlong; do
    [ "$i$effect" = 4overlong ] && continue
    "$krtsim" reset raid >/dev/null
    [ "$effect" = overlong ] && "$krtsim" fault add --overlong >/dev/null
    (cd "$scratch" && "$krtsim" exec -- "$OLDPWD/$build/tests/fuzz/krt_fuzz_capture" "$i" "$OLDPWD/$out/$(printf '%02d' "$i")-$effect")
  done
done
