#!/usr/bin/env bash
# main-loop_test.sh PROGRAM: a server with that main loop. $BURST asks it more at once than it takes in one turn.
source "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
chapter main-loops

start server "$1"
says server "ready"
runs "21.5 degrees" reading
"${emulator[@]}" "$BURST" || fail "not all that was asked at once is answered"
runs "21.5 degrees" reading
stop server Thermometer

for ask in TERM INT; do
    start server "$1"
    says server "ready"
    runs "21.5 degrees" reading
    kill -"$ask" "${processes[server]}"
    ends server 0
done
nothing_left
