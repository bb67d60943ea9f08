#!/usr/bin/env python3
"""Puts deliberate faults into src/ one at a time and runs the suite on each.

The yardstick of the test suite beside coverage: a suite that runs a line
without checking what it does would let these through. Each fault is a small
textual change (a flipped comparison, a bound off by one, a swapped message,
a wrong request word, a skipped check) that must apply exactly once.

    tools/fault_sample.py [--build DIR] [--only N,...] [--jobs N]

Builds in DIR (default build-faults/, configured like `make test`), runs
ctest with --stop-on-failure for each fault, restores the file, and prints a
table: fault, caught or missed, the first test that failed, seconds.
"""
import argparse
import os
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
# The QEMU guest and the package builds measure other programs, as in
# `make coverage`.
EXCLUDE = r"^(LinuxHost|PackageBuild|Packages\.)"

# (file, text as it stands, faulty text, what kind of fault)
FAULTS = [
    ("src/shell/parse.cpp", "if (*count >= capacity)", "if (*count > capacity)",
     "bound off by one: the 65th word of a line"),
    ("src/util/text.cpp", "if (*p < '0' || *p > '9')", "if (*p < '0' || *p > '8')",
     "digit test off by one"),
    ("src/api/status.cpp", '{6, "Invalid Firmware Slot"},\n    {7, "Invalid Firmware Image"},',
     '{6, "Invalid Firmware Image"},\n    {7, "Invalid Firmware Slot"},', "two status messages swapped"),
    ("src/commands/bga.cpp", "constexpr KRT_U32 kStopAction = 3;", "constexpr KRT_U32 kStopAction = 1;",
     "wrong request word: a stop sent as a pause"),
    ("src/device/device_management.cpp", "if (fn >= 8) {", "if (fn > 8) {",
     "packed device/function byte read off by one"),
    ("src/commands/flash.cpp", "if ((progress.result & 0x113) == 0x113)", "if (progress.result == 0x113)",
     "bit test made an equality"),
    ("src/commands/config.cpp", "cmd.CDW[14] = static_cast<KRT_U32>(config.BGARate) * 256 + config.AutoRebuildOn;",
     "cmd.CDW[14] = static_cast<KRT_U32>(config.AutoRebuildOn) * 256 + config.BGARate;",
     "request word fields swapped"),
    ("src/commands/event.cpp", "        if (seq > highest) {", "        if (seq >= highest) {",
     "comparison of the ring walk loosened"),
    ("src/api/admin.cpp", "    if (info.MaxPD == 0)\n        info.MaxPD = info.PortCount;\n", "",
     "a default skipped"),
    ("src/commands/vd.cpp", "            if (KRT_VD_Has_OS(gCurrentAdapter, static_cast<KRT_U16>(vdId), currentAdapterInfo().MaxNS) ==\n                kHoldsOsVolume) {",
     "            if (false) {", "the OS-volume check skipped"),
    ("src/commands/log.cpp", "if (length > KRT_SPI_LOG_MAX_CHUNK) {", "if (length > KRT_SPI_LOG_MAX_CHUNK + 1) {",
     "bound of a device length off by one"),
    ("src/commands/adapter.cpp", "constexpr std::size_t kSlotMax = 12;", "constexpr std::size_t kSlotMax = 13;",
     "bound of a typed text off by one"),
    ("src/commands/ns.cpp", "const auto unit = static_cast<KRT_U16>((o.id + 1) | o.cid << 8);",
     "const auto unit = static_cast<KRT_U16>(o.id | o.cid << 8);", "wrong request word: the PD id plus 1 left out"),
    ("src/commands/info_vd.cpp", "if (vd.RaidMode == KRT_RAID6 || vd.RaidMode == KRT_RAID60) {",
     "if (vd.RaidMode == KRT_RAID5 || vd.RaidMode == KRT_RAID60) {", "a line printed for the wrong RAID level"),
    ("src/commands/info_ns.cpp", "return (status == KRT_VD_DEGRADE || status == KRT_VD_REBUILDING) ? \"Unhealthy\" : \"Healthy\";",
     "return (status == KRT_VD_DEGRADE) ? \"Unhealthy\" : \"Healthy\";", "one case of an enumeration lost"),
    ("src/commands/smart_log.cpp", "constexpr int kKelvinAtZeroCelsius = 273;", "constexpr int kKelvinAtZeroCelsius = 272;",
     "unit conversion off by one"),
    ("src/shell/dispatcher.cpp", "    if (*matches != 1)\n        return nullptr;", "    if (*matches == 0)\n        return nullptr;",
     "an ambiguous abbreviation let through"),
    ("src/commands/info_vd.cpp", "std::string word = vd.PDIDs[i] > 65534 ? \"? \" : std::to_string(vd.PDIDs[i] + base) + \" \";",
     "std::string word = vd.PDIDs[i] >= 65534 ? \"? \" : std::to_string(vd.PDIDs[i] + base) + \" \";",
     "the missing-member mark off by one"),
    ("src/util/text.cpp", "        if (*p >= 'A' && *p <= 'Z')", "        if (*p >= 'A' && *p < 'Z')",
     "the last letter not lowered"),
    ("src/firmware/image.cpp", "    if (length % KRT_FLASH_SEGMENT != 0)\n        return 1;\n", "",
     "a check of an image's size skipped"),
    ("src/util/json_output.cpp", "key += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);",
     "key += static_cast<char>(c);", "the JSON key rule half applied"),
]


def run(cmd, **kw):
    return subprocess.run(cmd, cwd=ROOT, text=True, capture_output=True, **kw)


def build(build_dir, jobs):
    r = run(["cmake", "--build", build_dir, "-j", str(jobs)])
    return r.returncode == 0, r.stdout[-2000:] + r.stderr[-2000:]


def first_failure(output):
    for line in output.splitlines():
        if "***Failed" in line or "***Timeout" in line or "***Exception" in line:
            return line.split(":", 1)[-1].split("...")[0].strip()
    return ""


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--build", default="build-faults")
    ap.add_argument("--only", default="")
    ap.add_argument("--jobs", type=int, default=os.cpu_count() or 2)
    args = ap.parse_args()
    build_dir = os.path.join(ROOT, args.build)
    if not os.path.exists(os.path.join(build_dir, "CMakeCache.txt")):
        r = run(["cmake", "-S", ".", "-B", build_dir])
        if r.returncode != 0:
            sys.exit(r.stdout + r.stderr)
    ok, log = build(build_dir, args.jobs)
    if not ok:
        sys.exit("the unchanged tree does not build:\n" + log)
    chosen = {int(n) for n in args.only.split(",") if n} or set(range(1, len(FAULTS) + 1))

    caught = missed = 0
    print(f"{'#':>2}  {'verdict':<8} {'secs':>5}  fault / first failing test")
    for number, (path, old, new, what) in enumerate(FAULTS, 1):
        if number not in chosen:
            continue
        full = os.path.join(ROOT, path)
        with open(full) as f:
            original = f.read()
        if original.count(old) != 1:
            print(f"{number:>2}  {'n/a':<8} {'':>5}  {path}: {what} (the text does not stand once)")
            continue
        start = time.time()
        try:
            with open(full, "w") as f:
                f.write(original.replace(old, new))
            ok, log = build(build_dir, args.jobs)
            if not ok:
                verdict, test = "no-build", log.strip().splitlines()[-1:]
            else:
                r = run(["ctest", "--test-dir", build_dir, "-j", str(args.jobs), "--stop-on-failure",
                         "--timeout", "300", "-E", EXCLUDE])
                verdict = "caught" if r.returncode != 0 else "missed"
                test = first_failure(r.stdout)
        finally:
            with open(full, "w") as f:
                f.write(original)
        caught += verdict == "caught"
        missed += verdict == "missed"
        print(f"{number:>2}  {verdict:<8} {time.time() - start:5.0f}  {path}: {what}", flush=True)
        if test:
            print(f"{'':>18}{test}", flush=True)
    build(build_dir, args.jobs)
    print(f"caught {caught} of {caught + missed}")


if __name__ == "__main__":
    main()
