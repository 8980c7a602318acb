#!/usr/bin/env bash
# quick_test.sh PROGRAM RESULTS: every scenario runs to its end, loses no message and leaves nothing behind.
set -euo pipefail
program=$1 results=$2

rm -f "$results"
"$program" --quick --json "$results" >"$results.txt" &
harness=$!
wait "$harness" || { cat "$results.txt"; exit 1; }

# The program itself fails when a message is lost, doubled or overtaken, or when there are fewer than it asked for.
has() {
    grep -q "\"scenario\":\"$1\",\"peer\":\"$2\"" "$results" || { echo "no $1 of $2"; exit 1; }
}
for scenario in round-trip stream fan-in relay ring idle footprint; do
    for peer in LinxIpc SEQPACKET; do
        has "$scenario" "$peer"
    done
done
for scenario in relay-hop endpoints crowded-send backlog memory domain; do
    has "$scenario" LinxIpc
done
for scenario in round-trip stream fan-in relay copy; do
    has "$scenario" "bare memory"
done

left=$(find /dev/shm -maxdepth 1 -name "linx-bench.$harness.*")
[[ -z $left ]] || { echo "left behind: $left"; exit 1; }
grep '^Left out' "$results.txt" || true
