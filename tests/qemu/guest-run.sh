#!/bin/sh
# Runs in the guest: krt_cli and nvme-cli on the same controller, each
# answer in its own section ("@@@ name", then "@@@ rc N"), then the timings.
dev=/dev/nvme0
# Controller 0, accepted by its vendor ID.
krt="/bin/krt_cli 0 --vid=0x1b36"

# Never the interactive shell, and never a hang: stdin is empty and every
# program has a minute.
run() {
  echo "@@@ $1"
  shift
  timeout 60 "$@" </dev/null
  echo "@@@ rc $?"
}

run krt-identify-ctrl $krt --json identify -c 1
run krt-identify-ns $krt --json identify -c 0 -n 1
run krt-smart $krt --json smart -o hba
run krt-firmware $krt --json flash -o hba -q firmware
run krt-info $krt info -o hba
run krt-vendor $krt smart -o ns -n 1
run nvme-id-ctrl nvme id-ctrl $dev -o json
run nvme-id-ns nvme id-ns $dev -n 1 -o json
run nvme-smart nvme smart-log $dev -o json
run nvme-fw-log nvme fw-log $dev -o json
# The machine read into a file (the initramfs has a /tmp): the standard
# requests of another maker's controller; then the file itself.
run krt-capture $krt --capture /tmp/machine.json
run krt-capture-file cat /tmp/machine.json

# Whole processes in blocks of ten runs of one command, the two tools in
# turn, eight times over, so that a slow moment of the host weighs on both
# alike. The uptime in hundredths of a second, read without starting a
# process, gives a block's hundredths: the milliseconds of one run.
tick() { read -r up _ </proc/uptime && now=${up%.*}${up#*.}; }
for b in 1 2 3 4 5 6 7 8; do
  for block in "krt-identify $krt identify -c 1" "nvme-identify nvme id-ctrl $dev" "krt-smart $krt smart -o hba" \
    "nvme-smart nvme smart-log $dev" "krt-version $krt version" "nvme-version nvme version" "true /bin/true"; do
    tick
    start=$now
    for i in 0 1 2 3 4 5 6 7 8 9; do
      ${block#* } </dev/null >/dev/null 2>&1
    done
    tick
    echo "@@@ block ${block%% *} $((now - start))"
  done
done
