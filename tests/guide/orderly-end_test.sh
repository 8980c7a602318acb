#!/usr/bin/env bash
# $BURST asks much at once, and then sends a SIGTERM; $NOTIFIED stands in for systemd.
source "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
chapter orderly-end

start_at manager "$NOTIFIED" "$scratch/notices"
says_in_time manager "ready"
NOTIFY_SOCKET=$scratch/notices WATCHDOG_USEC=200000 start server orderly
says server "ready"
says manager "READY=1"
says manager "WATCHDOG=1"
says manager "WATCHDOG=1"
"${emulator[@]}" "$PROGRAMS/reading" >/dev/null || fail "the thermometer does not answer"
kill -TERM "${processes[server]}"
shown "STOPPING=1"
says_in_time manager "STOPPING=1"
ends server 0
kill_hard manager

start server orderly
says server "ready"
"${emulator[@]}" "$BURST" "${processes[server]}" || fail "not all that was asked before the SIGTERM is answered"
ends server 0

start server orderly
says server "ready"
stop server Thermometer
nothing_left
