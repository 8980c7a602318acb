# Sourced: what the tests share that build examples/hello.cpp.

# say_hello PROGRAM: one process of it serves, another asks. The domain goes away with them.
say_hello() {
    local server answer line
    LINX_DOMAIN=$(mktemp --directory)
    export LINX_DOMAIN
    coproc "$1"
    server=$COPROC_PID
    read -r line <&"${COPROC[0]}"
    [[ $line == ready ]]
    answer=$("$1" World)
    kill "$server"
    wait "$server" || true
    rm -r "$LINX_DOMAIN"
    echo "$answer"
    [[ $answer == "Hello, World!" ]]
}
