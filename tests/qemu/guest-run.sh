#!/bin/sh
# Runs in the guest: krt_cli and nvme-cli on the same controller, each
# answer in its own section ("@@@ name", then "@@@ rc N"), then the timings.
dev=/dev/nvme0
# Controller 0, accepted by its vendor ID.
krt="/bin/krt_cli 0 --vid=0x1b36"

# Never the interactive shell, and never a hang: stdin is empty and every
# program has a minute.
run() {
  name=$1
  shift
  echo "@@@ $name"
  timeout 60 "$@" </dev/null
  echo "@@@ rc $?"
}

echo "@@@ nodes"
ls /dev | grep nvme
run krt-identify-ctrl $krt identify -c 1
run krt-identify-ns $krt identify -c 0 -n 1
run krt-smart $krt smart -o hba
run krt-firmware $krt flash -o hba -q firmware
run krt-info $krt info -o hba
run krt-vendor $krt smart -o ns -n 1
run nvme-id-ctrl nvme id-ctrl $dev -o json
run nvme-id-ns nvme id-ns $dev -n 1 -o json
run nvme-smart nvme smart-log $dev -o json
run nvme-fw-log nvme fw-log $dev -o json

# Whole processes, N rounds of all five in turn, so that a slow moment of
# the host weighs on each alike: microseconds per run. The clock is the
# uptime's hundredths of a second, hence the many rounds.
N=40
now() {
  read -r up _ </proc/uptime
  echo "${up%.*}${up#*.}"
}
t_startup=0 t_krt_id=0 t_nvme_id=0 t_krt_smart=0 t_nvme_smart=0
timed() {
  var=$1
  shift
  start=$(now)
  "$@" </dev/null >/dev/null 2>&1
  end=$(now)
  eval "$var=\$((\$$var + end - start))"
}
i=0
while [ $i -lt $N ]; do
  timed t_startup $krt version
  timed t_krt_id $krt identify -c 1
  timed t_nvme_id nvme id-ctrl $dev
  timed t_krt_smart $krt smart -o hba
  timed t_nvme_smart nvme smart-log $dev
  i=$((i + 1))
done
echo "@@@ time krt-startup $((t_startup * 10000 / N))"
echo "@@@ time krt-identify $((t_krt_id * 10000 / N))"
echo "@@@ time nvme-identify $((t_nvme_id * 10000 / N))"
echo "@@@ time krt-smart $((t_krt_smart * 10000 / N))"
echo "@@@ time nvme-smart $((t_nvme_smart * 10000 / N))"
