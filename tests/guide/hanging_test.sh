#!/usr/bin/env bash
source "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
chapter hanging

linx() { "${emulator[@]}" "$LINX" "$@"; }

# What differs from run to run does not matter: times, spids, processes, users, how many events there were
# before, and how columns are filled.
leveled() {
    sed -E "s/ [0-9]+  (slept|sent|received) / COUNT \1 /; s/[0-9.]+ s( ago)?/TIME/g; s/[0-9a-f]{8} +[0-9]+/SPID PID/g; s/[^ ]+ +(device|$(id -un)) /COMM USER /g; s/ +/ /g; s/^ //"
}

# shows LINE-PATTERN VERB...: a line of what `linx VERB...` writes is like that, and like one that stands in the page.
shows() {
    local written line
    shown "\$ linx ${*:2}"
    written=$(linx "${@:2}") || true
    line=$(leveled <<<"$written" | grep -E -- "$1") || fail "linx ${*:2} has no '$1' in: $written"
    leveled <"$page" | grep -qxF -- "$line" || fail "${page##*/} has no: $line"
}

start heating asks_first Heating Window
start window asks_first Window Heating
says heating "ready"
says window "ready"
shown "\$ linx send Heating 2020"
linx send Heating 2020
until [[ $(linx waits) == *cycle* ]]; do :; done

"${emulator[@]}" "$LINX" >"$scratch/list"
grep -qE '^Heating .* waiting +1 .* Window$' "$scratch/list" || fail "$(<"$scratch/list")"
grep -qE '^Window .* waiting +0 .* Heating$' "$scratch/list" || fail "$(<"$scratch/list")"
leveled <"$scratch/list" | while read -r line; do
    leveled <"$page" | grep -qxF -- "$line" || fail "${page##*/} has no: $line"
done
shows '^Heating Window TIME 2020 2021$' waits
shows '^Window Heating TIME 2020 2021$' waits
shows '^cycle: ' waits
shows '^waits for TIME, for 1280, 1281, 2021, having sent 2020 to Window$' status Heating
shows '^2020 1 64 B Window 1$' status Heating
shows '^Window COUNT received 2020 4 Heating$' record Heating Window
shows '^Window COUNT sent 2020 4 Heating$' record Heating Window
shows '^TIME Heating COUNT slept for 2021 and 2 more$' record Heating Window
shows '^cycle: Heating waits for Window, which waits for Heating: ' doctor
shows '; for now, linx shutdown Heating ' doctor

shown "\$ linx shutdown Heating"
linx shutdown Heating
ends heating 0
until [[ $(linx doctor || true) == *long-wait* ]]; do :; done
shows '^long-wait: Window sent 2020 to Heating, which has ended, TIME and waits for 2021$' doctor
shows '; for now, linx shutdown Window$' doctor
linx shutdown Window
ends window 0
nothing_left
