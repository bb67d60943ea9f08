#!/usr/bin/env bash
# Installs the Debian packages that building and testing krt_cli need, when
# they are missing. Safe to run again: it installs nothing when all are there.
set -euo pipefail

# `scripts/install-deps.sh package` adds what `make test` and `make package`
# need to build and check the manual page and the Debian packages.
packages=(
  build-essential cmake pkg-config
  libedit-dev libbsd-dev libmd-dev libncurses-dev  # line editing, linked statically
  googletest libgtest-dev libgmock-dev            # tests
  libbenchmark-dev                                # bench/
  nlohmann-json3-dev                              # simulator fixtures
)
if [ "${1:-}" = package ]; then
  packages+=(dpkg-dev groff-base man-db lintian)
fi

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
