#!/usr/bin/env bash
# Installs the Debian packages that building and testing krt_cli need, when
# they are missing. Safe to run again: it installs nothing when all are there.
#   scripts/install-deps.sh        building and testing
#   scripts/install-deps.sh fuzz   the fuzz targets' compiler (make fuzz)
#   scripts/install-deps.sh package   what `make test` and `make package` need
#                                     to build and check the manual page, the
#                                     Debian packages and the Ansible
#                                     collection's tarball
#   scripts/install-deps.sh contrib   what the tests of contrib/ run: Ansible,
#                                     promtool and the Prometheus client
#   scripts/install-deps.sh qemu   the emulator set of the Linux-host test
#                                  (tests/qemu): only `make test` asks for it
#   scripts/install-deps.sh coverage   gcovr, for `make coverage`
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  libedit-dev libbsd-dev libmd-dev libncurses-dev  # line editing, linked statically
  googletest libgtest-dev libgmock-dev            # tests
  libbenchmark-dev                                # bench/
  nlohmann-json3-dev                              # simulator fixtures
  python3-jsonschema                              # the JSON schema check of the tests
)
# Further sets, only when asked for; several may be named at once.
for set in "$@"; do
  case "$set" in
    # clang with its libFuzzer runtime (libclang_rt.fuzzer)
    fuzz) packages+=(clang libclang-rt-dev) ;;
    package) packages+=(dpkg-dev groff-base man-db lintian ansible-core) ;;
    # The playbooks and ansible-doc; promtool (in prometheus: installing it may
    # start a server, which nothing here uses); krt-metrics' own library.
    contrib) packages+=(ansible-core prometheus python3-prometheus-client) ;;
    # The guest of tests/qemu: an emulator, a small initramfs and the standard
    # NVMe tool to compare with. Its kernel is unpacked by the test itself.
    qemu) packages+=(qemu-system-x86 busybox-static cpio nvme-cli) ;;
    coverage) packages+=(gcovr) ;;
    *) echo "install-deps: unknown set '$set' (known: fuzz, package, contrib, qemu, coverage)" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

[ ${#missing[@]} -eq 0 ] && exit 0

echo "install-deps: installing ${missing[*]}"
if [ "$(id -u)" -eq 0 ]; then
  SUDO=()
elif command -v sudo >/dev/null 2>&1; then
  SUDO=(sudo)
else
  echo "install-deps: these Debian packages are missing: ${missing[*]}" >&2
  echo "install-deps: installing them needs root; run 'sudo scripts/install-deps.sh' or install them yourself." >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
"${SUDO[@]}" apt-get update -qq
"${SUDO[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
