#!/usr/bin/env bash
# Python's programs are in $SCRIPTS, linx.py in $PYTHONPATH; $SANITIZER_RUNTIME is what a sanitized library wants loaded
# before all else.
source "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
chapter from-python

command -v python3 >/dev/null || { echo "Skipped: there is no python3"; exit 77; }
export PYTHONDONTWRITEBYTECODE=1
# The interpreter itself never frees all that it has.
python=(env "LD_PRELOAD=${SANITIZER_RUNTIME:-}" "ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}detect_leaks=0" python3)
start_python() { start_at "$1" "${python[@]}" "$SCRIPTS/$2" "${@:3}"; }

start thermometer thermometer
says thermometer "ready"
start_python client reading.py
says client "21.5 degrees"
ends client 0
start_python client reading.py -600
says client "20.9 degrees"
ends client 0
stop thermometer Thermometer

start_python server thermometer.py
says server "ready"
runs "20.9 degrees" reading -600
runs "20.9 degrees" reading
stop server Thermometer
nothing_left
