#!/usr/bin/env bash
# baseline.sh ExportsAreThoseListed | TypesAreThoseOfTheBaseline | renew: compares the libraries with what was promised,
# which stands in this folder. The environment names the build and its compiler.
set -euo pipefail

here=$(dirname "${BASH_SOURCE[0]}")
hidden=$here/standard_types.ini  # to us the standard library's types are names: their insides are not our promise
remedy="Should the change be meant, 'make abi-baseline' renews what stands in tests/abi."

skip() {
    echo "Skipped: $*"
    exit 77
}

# The names that a library offers to others, mangled, with their versions: of all machines' alike. The versions
# themselves are among the symbols of some linkers.
exports() {
    "$READELF" --dyn-syms --wide "$1" |
        awk '$5 ~ /GLOBAL|WEAK|UNIQUE/ && $7 !~ /UND|ABS/ { print $8 }' | LC_ALL=C sort
}

# Goes on only where the baseline can be compared with.
expect_release_machine() {
    [[ -z $SANITIZE ]] || skip "the baseline is of the libraries that ship, those without sanitizers."
    [[ $COMPILER == GNU ]] || skip "the baseline is one of g++."
    [[ $("$READELF" -h "$BUILD/ipc/libLinxIpc.so") =~ ELF64.*X86-64 ]] || skip "the baseline is one of x86_64."
    command -v abidiff >/dev/null || skip "abidiff is missing; it comes with the Debian package abigail-tools."
}

# Builds the libraries apart, with what the debugger is told about types, and sets `built` to the place.
build_described() {
    built=$SCRATCH/described
    "$CMAKE" -G Ninja -S "$SOURCE" -B "$built" --preset libraries -DLINXIPC_PLATFORM="$PLATFORM" \
        -DLINXIPC_SYSTEMD="$SYSTEMD" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_C_COMPILER="$CC" \
        -DCMAKE_CXX_FLAGS="-femit-struct-debug-detailed=gen:none -ffile-prefix-map=$SOURCE/=" >/dev/null
    "$CMAKE" --build "$built" --target "${targets[@]}"
}

types() {
    abidw --suppressions "$hidden" --exported-interfaces-only --no-corpus-path --no-comp-dir-path --no-show-locs \
        --no-parameter-names --no-elf-needed "$1"
}

ExportsAreThoseListed() {
    local target failed=0
    for target in "${targets[@]}"; do
        exports "$BUILD/${folder[$target]}/lib$target.so" |
            diff --label promised --label exported -u "$here/lib$target.symbols" - || failed=1
    done
    [[ $failed -eq 0 ]] || { echo "$remedy"; exit 1; }
}

TypesAreThoseOfTheBaseline() {
    local target failed=0
    expect_release_machine
    build_described
    for target in "${targets[@]}"; do
        abidiff --suppressions "$hidden" --exported-interfaces-only --harmless "$here/lib$target.abi" \
            "$built/${folder[$target]}/lib$target.so" || failed=1
    done
    [[ $failed -eq 0 ]] || { echo "$remedy"; exit 1; }
}

renew() {
    local target library
    expect_release_machine
    build_described
    for target in "${targets[@]}"; do
        library=$built/${folder[$target]}/lib$target.so
        exports "$library" >"$here/lib$target.symbols"
        types "$library" >"$here/lib$target.abi"
    done
}

declare -A folder=([LinxIpc]=ipc [linxhost]=host)
targets=(LinxIpc)
[[ $PLATFORM == external ]] || targets+=(linxhost)
"$1"
