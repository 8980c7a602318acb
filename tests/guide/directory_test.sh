#!/usr/bin/env bash
source "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
chapter directory

start roll_call roll_call
says roll_call "ready"
start config config_server colour
says roll_call "ConfigMgr is there"
start thermometer thermometer
says roll_call "Thermometer is there"

runs "7" question size
start question question colour
says_in_time config "an answer is withheld"
kill_hard config
says question "ConfigMgr: Connection reset by peer"
ends question 1
says roll_call "ConfigMgr has ended"

start config config_server
says roll_call "ConfigMgr is there"
runs "blue" question colour
stop thermometer Thermometer
says roll_call "Thermometer has ended"
stop config ConfigMgr
says roll_call "ConfigMgr has ended"
stop roll_call RollCall
nothing_left
