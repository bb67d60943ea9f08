#!/usr/bin/env bash
# The Ansible collection's modules in playbooks against simulated machines.
#   ansible.sh <krtsim> <krt_cli> <contrib source folder>
# Skips (77) when ansible-playbook is not installed.
set -euo pipefail
krtsim=$1 krt_cli=$2 contrib=$3

if ! command -v ansible-playbook >/dev/null; then
  echo "skipped: ansible-playbook is not installed (scripts/install-deps.sh contrib)"
  exit 77
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The collection as Ansible looks for it: ansible_collections/<namespace>/<name>.
mkdir -p "$work/collections/ansible_collections/krt" "$work/tmp"
ln -s "$contrib/ansible" "$work/collections/ansible_collections/krt/raid"
: > "$work/ansible.cfg"
export KRTSIM_STATE=$work/state KRT_CLI=$krt_cli
export ANSIBLE_CONFIG=$work/ansible.cfg ANSIBLE_COLLECTIONS_PATH=$work/collections
export ANSIBLE_LOCAL_TEMP=$work/tmp ANSIBLE_REMOTE_TEMP=$work/tmp ANSIBLE_NOCOLOR=1
export PATH="$(dirname "$krt_cli"):$PATH"

"$krtsim" reset raid >/dev/null
exec "$krtsim" exec -- ansible-playbook -i localhost, "$contrib/tests/krt_modules.yml" -e "krtsim=$krtsim"
