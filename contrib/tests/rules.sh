#!/usr/bin/env bash
# The example alerting rules: valid, and firing when and only when meant to.
#   rules.sh <contrib source folder>
set -euo pipefail
prometheus=$1/prometheus
if ! command -v promtool >/dev/null; then
  echo "skipped: promtool is not installed (scripts/install-deps.sh contrib)"
  exit 77
fi
promtool check rules "$prometheus/krt-alerts.yml"
promtool test rules "$prometheus/krt-alerts.test.yml"
