#!/usr/bin/env bash
# deploying_test.sh CASE: units, users or containers. The files for systemd are in $SCRIPTS/deploy.
source "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
chapter deploying
readonly group=64990 member=64991 other=64992 stranger=64993

skip() {
    echo "Skipped: $*"
    exit 77
}
needs() { command -v "$1" >/dev/null || skip "there is no $1"; }
needs_root() { [[ $EUID == 0 ]] || skip "only root can $1"; }

as() { setpriv --reuid="$1" --regid="$2" --clear-groups "${@:3}"; }
as_member() { as "$1" "$group" "${@:2}"; }

# The units are what systemd takes, and users and directories come out as they say.
units() {
    needs systemd-analyze
    needs systemd-sysusers
    needs systemd-tmpfiles
    local unit complaints root=$scratch/root
    mkdir -p "$scratch/units" "$root/etc"
    cp "$SCRIPTS"/deploy/*.target "$scratch/units"
    for unit in "$SCRIPTS"/deploy/*.service; do  # with a program that is there
        sed 's|^ExecStart=.*|ExecStart=/bin/true|' "$unit" >"$scratch/units/${unit##*/}"
        complaints=$(systemd-analyze verify --man=no "$scratch/units/${unit##*/}" 2>&1) ||
            fail "systemd does not take ${unit##*/}: $complaints"
        [[ $complaints != *"${unit##*/}"* ]] || fail "$complaints"
    done
    needs_root "make what others own"
    systemd-sysusers --root="$root" "$SCRIPTS/deploy/device.sysusers"
    grep -q '^thermometer:' "$root/etc/passwd" || fail "there is no user"
    systemd-tmpfiles --root="$root" --create "$SCRIPTS/deploy/device.tmpfiles"
    local made
    made=$(stat -c '%a %g' "$root/run/device/linx")
    [[ $made == "2770 $(grep '^device:' "$root/etc/group" | cut -d : -f 3)" ]] || fail "the directory is $made"
}

# Users of one group meet; others do not get in.
users() {
    needs setpriv
    needs_root "become others"
    as_member "$member" test -x "$PROGRAMS/thermometer" || skip "others may not run $PROGRAMS"
    chgrp "$group" "$LINX_DOMAIN"
    chmod 2770 "$LINX_DOMAIN"
    emulator=(setpriv --reuid="$member" --regid="$group" --clear-groups "${emulator[@]}")
    start thermometer thermometer
    says_in_time thermometer "ready"
    emulator[1]=--reuid=$other
    runs "21.5 degrees" reading
    shown "no temperature: Permission denied"
    emulator[1]=--reuid=$stranger
    emulator[2]=--regid=$stranger
    local written
    written=$("${emulator[@]}" "$PROGRAMS/reading" 2>&1) && fail "a stranger gets in"
    [[ $written == *"no temperature: Permission denied" ]] || fail "a stranger is told: $written"
    emulator[1]=--reuid=$member
    emulator[2]=--regid=$group
    stop thermometer Thermometer
    nothing_left
}

# A process with files, processes and IPC of its own meets others where it has the directory, by whatever path.
containers() {
    needs unshare
    unshare --mount --pid --ipc --net --fork true 2>/dev/null || skip "no containers can be made here"
    start thermometer thermometer
    says_in_time thermometer "ready"
    mkdir "$scratch/elsewhere"
    export elsewhere=$scratch/elsewhere
    local written
    # shellcheck disable=SC2016  # expanded inside
    written=$(unshare --mount --pid --ipc --net --fork bash -ec '
        mount --bind "$LINX_DOMAIN" "$elsewhere"
        mount -t tmpfs none /dev/shm
        LINX_DOMAIN=$elsewhere exec "$@"' bash "${emulator[@]}" "$PROGRAMS/reading") || fail "they do not meet: $written"
    [[ $written == "21.5 degrees" ]] || fail "inside it says: $written"
    stop thermometer Thermometer
    nothing_left
}

"$1"
