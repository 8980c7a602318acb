#!/usr/bin/env bash
source "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
chapter supervisor

shown "Thermometer runs as process"
shown "Thermometer has ended in order"
runs_again() {
    says_in_time supervisor "Thermometer runs as process *"
    server=${line##* }
    processes[server]=$server  # until it has ended, it is ended here when the test fails
}

start supervisor supervisor Thermometer "${emulator[@]}" "$PROGRAMS/thermometer"
runs_again
for _ in 1 2 3; do
    first=$server
    kill -KILL "$server"
    says_in_time supervisor "Thermometer has ended"
    runs_again
    [[ $server != "$first" ]] || fail "the same process goes on"
    runs "21.5 degrees" reading
done
unset "processes[server]"
"${emulator[@]}" "$PROGRAMS/stop" Supervisor
says_in_time supervisor "Thermometer has ended in order"
ends supervisor 0
nothing_left
