#!/usr/bin/env bash
source "$(dirname "${BASH_SOURCE[0]}")/stage.sh"
chapter configuration

# asks LINE LINE ARGUMENT...: what the client with these arguments writes.
asks() {
    start client config_client "${@:3}"
    says client "$1"
    says client "$2"
    ends client 0
}

start server config_server
says server "ready"
asks "colour: blue" "size: 7"
stop server ConfigMgr

start late config_server colour
says late "ready"
asks "colour: Connection timed out" "size: 7"
asks "colour: Connection timed out" "size: blue" --careless
stop late ConfigMgr
asks "colour: no server" "size: no server"
nothing_left
