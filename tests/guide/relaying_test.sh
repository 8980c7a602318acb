#!/usr/bin/env bash
source "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
chapter relaying

start dispatcher dispatcher
says dispatcher "ready"
start one worker Worker1
says dispatcher "Worker1 is available"
start two worker Worker2
says dispatcher "Worker2 is available"

start client jobs 1000
says client "Worker1 has done 500"
says client "Worker2 has done 500"
ends client 0

kill_hard one
says dispatcher "Worker1 has ended"
runs "Worker2 has done 1000" jobs 1000

start again worker Worker1
says dispatcher "Worker1 is available"
start client jobs 10
says_in_time client "Worker2 has done 5"
ends client 0

stop again Worker1
stop two Worker2
stop dispatcher Dispatcher
nothing_left
