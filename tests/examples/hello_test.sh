#!/usr/bin/env bash
# hello_test.sh [EMULATOR...] PROGRAM: the greeter and two guests, each a process of its own.
set -euo pipefail

LINX_DOMAIN=$(mktemp -d /dev/shm/linx.hello.XXXXXX)
export LINX_DOMAIN
trap 'rm -rf "$LINX_DOMAIN"' EXIT

exec {output}< <(exec "$@")
greeter=$!
trap 'kill "$greeter" 2>/dev/null || true; wait "$greeter" || true; rm -rf "$LINX_DOMAIN"' EXIT
read -r line <&"$output" && [[ $line == "ready" ]] || { echo "the greeter does not get ready"; exit 1; }

for guest in World Mars; do
    greeting=$("$@" "$guest") || { echo "$guest was not greeted"; exit 1; }
    [[ $greeting == "Hello, $guest!" ]] || { echo "$guest was told: $greeting"; exit 1; }
done
