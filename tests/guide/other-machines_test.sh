#!/usr/bin/env bash
# Both machines are this one, each with a domain of its own.
source "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
chapter other-machines

hall=$LINX_DOMAIN
kitchen=$(mktemp -d /dev/shm/linx.guide.XXXXXX)
trap 'clear_up; rm -rf "$kitchen"' EXIT

link() { "${emulator[@]}" "$LINK" "$@"; }
linx() { "${emulator[@]}" "$LINX" "$@"; }

# configure MACHINE PEER ADDRESS: its files, as in the example but for keys and address.
configure() {
    local line
    while IFS= read -r line; do  # keys have signs in them that mean something to sed
        [[ $line != peer* ]] || line="peer = '$(<"$scratch/$2/public")'"
        echo "${line/tcp:\/\/10.0.0.1:7400/$3}"
    done <"$SCRIPTS/link/$1.conf" >"$scratch/$1/link.conf"
}

in_kitchen() { LINX_DOMAIN=$kitchen "$@"; }
start_link() { in_kitchen start_at "$1" "$LINK" "$scratch/$1/link.conf"; }

for machine in hall kitchen; do
    mkdir "$scratch/$machine"
    link keygen "$scratch/$machine/link.key" >"$scratch/$machine/public"
done
# `check` tries the address.
address=
for _ in {1..20}; do
    address=tcp://127.0.0.1:$((20000 + RANDOM % 10000))
    configure hall kitchen "$address"
    ! link check "$scratch/hall/link.conf" || break
done
configure kitchen hall "$address"

in_kitchen start thermometer thermometer
says thermometer "ready"
start_link kitchen
start_at hall "$LINK" "$scratch/hall/link.conf"
start early early toKitchen/Thermometer
says early "waiting for a thermometer"
says early "21.5 degrees"
shown "linx wait toKitchen/Thermometer"
linx wait toKitchen/Thermometer
kill_hard kitchen
says early "the thermometer is gone"
start_link kitchen
says early "21.5 degrees"
stop early Early

for machine in hall kitchen; do
    kill "${processes[$machine]}"
    ends "$machine" 0
done
in_kitchen stop thermometer Thermometer
nothing_left
