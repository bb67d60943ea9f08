#!/usr/bin/env bash
# ansible-test sanity on the collection with Debian's packages alone: not part
# of the suite. ansible-test installs each check's Python requirements into a
# virtual environment of its own with pip, from the Python package index,
# which this machine cannot reach. So a first pass lets it lay out those
# environments (and fail in them), each is then made again over the system's
# site packages (Debian's yamllint, pylint, pycodestyle, voluptuous, Jinja2,
# PyYAML) and marked as done, and a second pass runs every check in them.
# The versions are Debian's, not ansible-test's pins.
#   sanity.sh <contrib source folder>
set -uo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/ansible_collections/krt/raid
mkdir -p "$(dirname "$root")"
cp -r "$1/ansible" "$root"
cd "$root" && git init -q . && git add -A

ansible-test sanity --local --python 3.11 >/dev/null 2>&1
for venv in ~/.ansible/test/venv/sanity*/3.11/*; do
  [ -e "$venv/marker.txt" ] && continue
  rm -rf "$venv"
  /usr/bin/python3 -m venv --without-pip --system-site-packages "$venv"
  echo '[]' > "$venv/meta.install.json"
  echo 'true' > "$venv/meta.yaml.json"
  touch "$venv/marker.txt"
done
ansible-test sanity --local --python 3.11
