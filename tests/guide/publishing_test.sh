#!/usr/bin/env bash
source "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
chapter publishing
export LINX_ARENA_MB=4

shown "frame 8 to B: Resource temporarily unavailable"
start publisher publisher
says publisher "ready"
start A subscriber A
start B subscriber B 3
says_in_time B "B is stuck"
says_in_time publisher "frame * to B: Resource temporarily unavailable"
shown "A has 50 frames"
says_in_time A "A has 50 frames"
says_in_time A "A has 100 frames"
tell B ""
shown "B sees a gap before frame"
says_in_time B "B sees a gap before frame *"
says_in_time publisher "B has missed * frames"
kill_hard B
shown "B has ended"
says_in_time publisher "B has ended"
stop A A
stop publisher Publisher

start careless publisher --careless
says careless "ready"
start C subscriber A
start D subscriber B 3
says_in_time D "B is stuck"
shown "to A: Cannot allocate memory"
says_in_time careless "frame * to A: Cannot allocate memory"
tell D ""
says_in_time careless "A has missed * frames"
stop C A
stop D B
stop careless Publisher
nothing_left
