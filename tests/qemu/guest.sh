#!/usr/bin/env bash
# Builds the Linux guest of the QEMU test into OUT and boots it: the Debian
# cloud kernel (unpacked, never installed) and an initramfs holding busybox,
# nvme-cli and krt_cli with the libraries each needs, rebuilt only when its
# inputs change. The guest's report goes to OUT/results.txt.
#   guest.sh OUT KRT_CLI
# Exit status 77: a package or the kernel cannot be had (the test is skipped,
# with the reason on standard error).
set -euo pipefail

mkdir -p "$1"
out=$(cd "$1" && pwd) krt_cli=$(realpath "$2") here=$(cd "$(dirname "$0")" && pwd)
skip() { echo "guest: $*" >&2; exit 77; }

for tool in qemu-system-x86_64 busybox cpio nvme; do
  command -v "$tool" >/dev/null 2>&1 || skip "'$tool' is missing: run 'scripts/install-deps.sh qemu'"
done
busybox=$(command -v busybox) nvme=$(command -v nvme)
# The guest has no libc of its own: busybox must be the static one.
! ldd "$busybox" >/dev/null 2>&1 || skip "$busybox is not static: install busybox-static"
[ -x "$krt_cli" ] || skip "no krt_cli at $krt_cli"

cd "$out"

# The kernel: the package the cloud metapackage names, fetched once.
if ! ls kernel/boot/vmlinuz-* >/dev/null 2>&1; then
  pkg=$(apt-cache depends linux-image-cloud-amd64 2>/dev/null | awk '/Depends: linux-image-/ { print $2; exit }')
  [ -n "$pkg" ] || skip "apt knows no linux-image-cloud-amd64 (run apt-get update)"
  rm -rf download kernel && mkdir download
  (cd download && apt-get download "$pkg" >/dev/null 2>&1) || skip "cannot download $pkg"
  dpkg-deb -x download/*.deb kernel || skip "cannot unpack $pkg"
  rm -rf download
fi
vmlinuz=$(ls kernel/boot/vmlinuz-* | head -n 1)
ln -sf "$vmlinuz" vmlinuz

# Everything the initramfs is made of; its hash names the build.
inputs=("$here/guest.sh" "$here/init" "$here/guest-run.sh" "$busybox" "$nvme" "$krt_cli" "$vmlinuz")
stamp=$(sha256sum "${inputs[@]}" | sha256sum | cut -d' ' -f1)
if [ ! -f initramfs.cpio.gz ] || [ "$(cat initramfs.stamp 2>/dev/null)" != "$stamp" ]; then
  root=$(mktemp -d "$out/root.XXXXXX")
  trap 'rm -rf "$root"' EXIT
  mkdir -p "$root"/{bin,sbin,dev,proc,sys,tmp,lib/modules}
  cp "$busybox" "$root/bin/busybox"
  install -m 0755 "$here/init" "$here/guest-run.sh" "$root/"

  # The two dynamically linked programs and the libraries the loader asks for.
  for program in "$nvme" "$krt_cli"; do
    install -m 0755 "$program" "$root/bin/"
    ldd "$program" | awk '/=> \// { print $3 } /^\t\// { print $1 }' | while read -r lib; do
      mkdir -p "$root$(dirname "$lib")" && cp -L "$lib" "$root$lib"
    done
  done

  # A kernel built with the NVMe driver as modules: take them along.
  modules=$(ls -d kernel/lib/modules/* | head -n 1)
  for m in nvme-common nvme-core nvme; do
    find "$modules" -name "$m.ko" -exec cp {} "$root/lib/modules/" \; -quit
  done

  (cd "$root" && find . | cpio -o -H newc --quiet | gzip -1) >initramfs.cpio.gz.new
  mv initramfs.cpio.gz.new initramfs.cpio.gz && echo "$stamp" >initramfs.stamp
fi

# One boot with a fresh disk; the second serial port carries the report.
rm -f nvme.img results.txt console.log && truncate -s 64M nvme.img && : >results.txt
timeout 540 qemu-system-x86_64 -machine q35,accel=tcg -cpu max -m 512 -nographic -no-reboot -monitor none \
  -kernel vmlinuz -initrd initramfs.cpio.gz -append "console=ttyS0 quiet panic=-1" \
  -drive file=nvme.img,if=none,id=nv0,format=raw,cache=unsafe -device nvme,serial=KRTQEMU0001,drive=nv0 \
  -serial file:console.log -serial file:results.txt || qemu=$?
if [ -n "${qemu:-}" ] || ! grep -q '^@@@ end' results.txt; then
  echo "the guest did not finish (qemu status ${qemu:-0}); console:" >&2
  cat console.log >&2
  exit 1
fi
