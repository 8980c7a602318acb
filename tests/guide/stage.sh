# To be sourced by the test of a chapter: a domain of its own, the chapter's programs as processes in it, and nothing of
# either afterwards. The environment says where PROGRAMS and PAGES are, the EMULATOR that the programs need, and the
# SKIP_REASON where they could not be built.
set -euo pipefail

if [[ -n ${SKIP_REASON:-} ]]; then
    echo "Skipped: $SKIP_REASON"
    exit 77
fi

read -ra emulator <<<"${EMULATOR:-}"
readonly patience=200  # seconds; the machine may be busy
declare -A processes inputs outputs
page=

scratch=$(mktemp -d)
LINX_DOMAIN=$(mktemp -d /dev/shm/linx.guide.XXXXXX)
export LINX_DOMAIN
unset LINX_LOG LINX_LOG_LEVEL LINX_ARENA_MB NOTIFY_SOCKET WATCHDOG_USEC WATCHDOG_PID

clear_up() {
    local process
    for process in "${processes[@]}"; do
        kill -KILL "$process" 2>/dev/null || true
    done
    wait
    rm -rf "$scratch" "$LINX_DOMAIN"
}
trap clear_up EXIT

fail() {
    echo "$*"
    exit 1
}

# chapter NAME: whose page has to show each line that is expected here.
chapter() { page=$PAGES/$1.md; }

shown() { grep -qF -- "$1" "$page" || fail "${page##*/} does not show: $1"; }

# start ID PROGRAM ARGUMENT...: it is asked for lines by that ID, and told them.
start() { start_at "$1" "$PROGRAMS/$2" "${@:3}"; }

# start_at ID PATH ARGUMENT...: the same with a program from elsewhere.
start_at() {
    local id=$1
    shift
    rm -f "$scratch/$id.in" "$scratch/$id.out"
    mkfifo "$scratch/$id.in" "$scratch/$id.out"
    exec {inputs[$id]}<>"$scratch/$id.in"
    "${emulator[@]}" "$@" <"$scratch/$id.in" >"$scratch/$id.out" &
    processes[$id]=$!
    exec {outputs[$id]}<"$scratch/$id.out"  # ends with the program
}

# next_line ID: sets `line`.
next_line() { read -r -t "$patience" -u "${outputs[$1]}" line || fail "$1 writes nothing more"; }

# says ID LINE: that is the next line of it, and it stands in the page.
says() {
    shown "$2"
    next_line "$1"
    [[ $line == "$2" ]] || fail "$1 says '$line', not '$2'"
}

# says_in_time ID PATTERN: that is one of its next lines.
says_in_time() {
    line=
    # shellcheck disable=SC2053  # a pattern it is
    until [[ $line == $2 ]]; do next_line "$1"; done
}

tell() { echo "$2" >&"${inputs[$1]}"; }

# runs LINE PROGRAM ARGUMENT...: writes that line, which stands in the page, and ends well.
runs() {
    local expected=$1 written
    shown "$expected"
    written=$("${emulator[@]}" "$PROGRAMS/$2" "${@:3}" </dev/null) || fail "$2 fails, having written: $written"
    [[ $written == "$expected" ]] || fail "$2 says '$written', not '$expected'"
}

# ends ID STATUS: by itself, with that.
ends() {
    local status=0
    wait "${processes[$1]}" || status=$?
    unset "processes[$1]"
    [[ $status == "$2" ]] || fail "$1 has ended with status $status, not $2"
}

# stop ID ENDPOINT: asks it to end, and it does.
stop() {
    "${emulator[@]}" "$PROGRAMS/stop" "$2" || fail "$2 does not end"
    ends "$1" 0
}

kill_hard() {
    kill -KILL "${processes[$1]}"
    ends "$1" 137 2>/dev/null
}

# The last line of a test: all have ended, and their domain is as though nobody had been there.
nothing_left() {
    [[ ${#processes[@]} == 0 ]] || fail "still there: ${!processes[*]}"
    local files
    files=$(ls "$LINX_DOMAIN")
    [[ $files == arena ]] || fail "left behind: $files"
}
