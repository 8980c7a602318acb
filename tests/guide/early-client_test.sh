#!/usr/bin/env bash
source "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
chapter early-client

start early early
says early "waiting for a thermometer"
start thermometer thermometer
says early "21.5 degrees"
kill_hard thermometer
says early "the thermometer is gone"
start second thermometer
says early "21.5 degrees"
stop second Thermometer
says early "the thermometer is gone"
stop early Early
nothing_left
