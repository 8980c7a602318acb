#!/usr/bin/env bash
source "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
chapter from-c

start waiting reading_c
start thermometer thermometer
says thermometer "ready"
says waiting "21.5 degrees"
ends waiting 0
runs "21.5 degrees" reading_c
stop thermometer Thermometer

# A thermometer that ends without an answer: in truth a worker that finds nobody to work for.
start waiting reading_c
start mute worker Thermometer
ends mute 1
says waiting "no temperature: Connection reset by peer"
ends waiting 1
nothing_left
