#!/usr/bin/env bash
source "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
chapter two-processes

start thermometer thermometer
says thermometer "ready"
runs "21.5 degrees" reading
runs "20.9 degrees" reading -600
runs "20.9 degrees" reading
stop thermometer Thermometer
shown "no temperature: there is no thermometer"
message=$("${emulator[@]}" "$PROGRAMS/reading" 2>&1) && fail "there is a temperature"
[[ $message == *"no temperature: there is no thermometer" ]] || fail "reading says: $message"
nothing_left
