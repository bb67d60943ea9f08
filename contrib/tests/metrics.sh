#!/usr/bin/env bash
# krt-metrics against simulated machines: the output passes promtool's check
# and holds the expected samples; a controller that fails a query, a
# controller that vanished and a driver without a list do not stop it.
#   metrics.sh <krtsim> <krt_cli> <contrib source folder>
# Skips (77) when promtool or Debian's python3-prometheus-client is missing.
set -euo pipefail
krtsim=$1 krt_cli=$2 contrib=$3
metrics=$contrib/prometheus/krt-metrics

if ! command -v promtool >/dev/null || ! /usr/bin/python3 -c 'import prometheus_client' 2>/dev/null; then
  echo "skipped: promtool or python3-prometheus-client is not installed (scripts/install-deps.sh contrib)"
  exit 77
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export KRTSIM_STATE=$work/state
out=$work/textfile/krt.prom
mkdir "$work/textfile"
failed=0

# scrape MACHINE FAULT EXPECTED-LINE...: FAULT is `krtsim fault` words or -.
scrape() {
  local machine=$1 fault=$2 line
  shift 2
  "$krtsim" reset "$machine" >/dev/null
  if [ "$fault" != - ]; then
    # shellcheck disable=SC2086
    "$krtsim" fault $fault >/dev/null
  fi
  echo "== $machine, fault: $fault"
  if ! "$krtsim" exec -- "$metrics" --krt-cli "$krt_cli" --output "$out"; then
    echo "FAIL: krt-metrics ended with a failure"; failed=1; return
  fi
  if ! promtool check metrics < "$out"; then
    echo "FAIL: promtool check metrics"; failed=1
  fi
  for line in "$@"; do
    if ! grep -qxF "$line" "$out"; then
      echo "FAIL: missing: $line"; failed=1
    fi
  done
  # The file is replaced whole: nothing else is left beside it.
  if [ "$(ls "$work/textfile")" != krt.prom ]; then
    echo "FAIL: left in the textfile folder: $(ls "$work/textfile")"; failed=1
  fi
}

scrape raid - \
  'krt_scrape_success 1.0' 'krt_controllers 1.0' 'krt_controller_scrape_success{controller="0"} 1.0' \
  'krt_controller_info{controller="0",device="vmhba1",firmware="2.1.0.0035",model="NVMe Controller",serial="KRT00001000"} 1.0' \
  'krt_vd_state{controller="0",raid_mode="RAID5",state="functional",vd="0"} 1.0' \
  'krt_vd_state{controller="0",raid_mode="RAID1",state="functional",vd="1"} 1.0' \
  'krt_vd_state{controller="0",raid_mode="RAID1",state="degrade",vd="1"} 0.0' \
  'krt_pd_state{controller="0",pd="7",state="idle"} 1.0' \
  'krt_pd_temperature_celsius{controller="0",pd="7"} 35.0' \
  'krt_pd_critical_warning{controller="0",pd="7"} 0.0' \
  'krt_pd_percentage_used{controller="0",pd="7"} 5.0'
scrape degraded - \
  'krt_scrape_success 1.0' \
  'krt_vd_state{controller="0",raid_mode="RAID6",state="degrade",vd="0"} 1.0' \
  'krt_vd_state{controller="0",raid_mode="RAID6",state="functional",vd="0"} 0.0' \
  'krt_vd_state{controller="0",raid_mode="RAID5",state="initialization",vd="1"} 1.0' \
  'krt_bga_progress_ratio{activity="rebuilding",controller="0",vd="0"} 0.4' \
  'krt_bga_progress_ratio{activity="initializing",controller="0",vd="1"} 0.1' \
  'krt_pd_state{controller="0",pd="4",state="fail"} 1.0' \
  'krt_pd_critical_warning{controller="0",pd="7"} 1.0'
# The second controller fails its virtual-disk list: the others are scraped.
scrape multi "add --adapter 1 --opcode 0xe2 --cdw12 0x000000e2 --status 0x0107" \
  'krt_scrape_success 0.0' 'krt_controllers 3.0' \
  'krt_controller_scrape_success{controller="0"} 1.0' \
  'krt_controller_scrape_success{controller="1"} 0.0' \
  'krt_controller_scrape_success{controller="2"} 1.0' \
  'krt_controller_info{controller="1",device="vmhba2",firmware="2.1.0.0035",model="NVMe Controller",serial="KRT00001001"} 1.0' \
  'krt_vd_state{controller="0",raid_mode="RAID5",state="functional",vd="0"} 1.0'
# A controller that cannot be opened is not listed by krt_cli at all.
scrape multi "vanish 1" 'krt_scrape_success 1.0' 'krt_controllers 2.0' \
  'krt_controller_info{controller="1",device="vmhba3",firmware="2.1.0.0035",model="NVMe Controller",serial="KRT00001002"} 1.0'
scrape raid list-fail 'krt_scrape_success 0.0' 'krt_controllers 0.0'

# Printed without --output: the same exposition.
"$krtsim" reset raid >/dev/null
"$krtsim" exec -- "$metrics" --krt-cli "$krt_cli" | promtool check metrics || { echo "FAIL: standard output"; failed=1; }

exit $failed
