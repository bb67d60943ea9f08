#!/usr/bin/env bash
# ansible-doc renders every module of the collection with its options,
# examples and return values.
#   doc.sh <contrib source folder>
set -euo pipefail
collection=$1/ansible
if ! command -v ansible-doc >/dev/null; then
  echo "skipped: ansible-doc is not installed (scripts/install-deps.sh contrib)"
  exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/ansible_collections/krt"
ln -s "$collection" "$work/ansible_collections/krt/raid"
: > "$work/ansible.cfg"
export ANSIBLE_CONFIG=$work/ansible.cfg ANSIBLE_COLLECTIONS_PATH=$work ANSIBLE_NOCOLOR=1

listed=$(ansible-doc -t module -l krt.raid | awk '{print $1}' | sort)
expected=$(cd "$collection/plugins/modules" && ls ./*.py | sed 's,^\./,krt.raid.,; s,\.py$,,' | sort)
if [ "$listed" != "$expected" ]; then
  printf 'FAIL: ansible-doc lists:\n%s\nexpected:\n%s\n' "$listed" "$expected"
  exit 1
fi
failed=0
for module in $expected; do
  # ansible-doc exits 0 with a warning when a module's documentation does not
  # parse, so its text is checked as well.
  text=$(ansible-doc -t module "$module" 2>&1) || { echo "$text"; failed=1; continue; }
  for part in "> ${module^^}" 'OPTIONS' 'EXAMPLES:' 'RETURN VALUES:'; do
    if ! grep -qF -- "$part" <<<"$text"; then
      echo "FAIL: $module: no '$part' in:"; echo "$text"; failed=1
    fi
  done
  echo "$module: rendered, $(wc -l <<<"$text") lines"
done
exit $failed
