#!/usr/bin/env bash
# unit_test.sh UNIT DROP-IN: systemd takes them, knows every setting, and finds little that the service could do harm with.
set -euo pipefail

command -v systemd-analyze >/dev/null || { echo "Skipped: there is no systemd-analyze."; exit 77; }
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
unit=$scratch/linx-link.service

# With a program and a user that are there.
mkdir "$unit.d"
sed 's|^ExecStart=[^ ]*|ExecStart=/bin/true|; s|^User=.*|User=daemon|' "$1" >"$unit"
sed 's|^SupplementaryGroups=.*|SupplementaryGroups=daemon|' "$2" >"$unit.d/device.conf"
complaints=$(systemd-analyze verify --man=no "$unit" 2>&1 || true)
[[ $complaints != *linx-link* && $complaints != *device.conf* ]] || { echo "$complaints"; exit 1; }

# In tenths: below 2.0.
systemd-analyze security --no-pager --offline=yes --threshold=19 "$unit" || { echo "It may do too much."; exit 1; }
