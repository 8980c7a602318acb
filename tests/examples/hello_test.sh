#!/usr/bin/env bash
# hello_test.sh PROGRAM: the greeter and a guest, each a process of its own.
set -euo pipefail

LINX_DOMAIN=$(mktemp -d /dev/shm/linx.hello.XXXXXX)
export LINX_DOMAIN
trap 'rm -rf "$LINX_DOMAIN"' EXIT

coproc GREETER { exec "$1"; }
trap 'kill "$GREETER_PID" 2>/dev/null || true; wait; rm -rf "$LINX_DOMAIN"' EXIT
read -r line <&"${GREETER[0]}"
[[ $line == "ready" ]]

for guest in World Mars; do
    greeting=$("$1" "$guest")
    [[ $greeting == "Hello, $guest!" ]] || { echo "$guest was told: $greeting"; exit 1; }
done
