#!/usr/bin/env bash
# install_test.sh CASE: what a user of the package meets. The environment names the build and its compilers.
set -euo pipefail

if [[ -n $SANITIZE ]]; then
    echo "Skipped: the package that ships is the one without sanitizers."
    exit 77
fi

prefix=$SCRATCH/prefix
library=$prefix/$LIBDIR/libLinxIpc.so
platform=$prefix/$LIBDIR/liblinxhost.so

fail() {
    echo "$*"
    exit 1
}

# The demangled names of what the library offers to others; in the C++ ones the class comes first.
exported() { nm -DC --defined-only "$1" | cut -d ' ' -f 3-; }

read -ra emulator <<<"${EMULATOR:-}"

# run PROGRAM EXPECTED: in a domain that goes away with it.
run() {
    local domain output
    domain=$(mktemp -d /dev/shm/linx.install.XXXXXX)
    output=$(LINX_DOMAIN=$domain "${emulator[@]}" "$1") || { rm -rf "$domain"; fail "$1 failed: $output"; }
    rm -rf "$domain"
    [[ $output == "$2" ]] || fail "$1 wrote: $output"
}

run_consumers() {
    run "$1/library_user" "round trip, ConfigMgr"
    run "$1/platform_user" "round trip"
}

# The package is moved after it was installed: nothing in it may name the place it was installed to.
TheTreeInstallsAndMoves() {
    rm -rf "$prefix" "$SCRATCH/first-place"
    "$CMAKE" --install "$BUILD" --prefix "$SCRATCH/first-place"
    mv "$SCRATCH/first-place" "$prefix"
}

InstallsWhatAConsumerNeeds() {
    local file
    for file in "$LIBDIR"/lib{LinxIpc,linxhost}.so "$LIBDIR"/pkgconfig/{linxipc,linxhost}.pc \
        "$LIBDIR"/cmake/linxipc/linxipcConfig{,Version}.cmake include/linxipc/ipc/{linxIpc,LogLevel,ReservedSignal}.h \
        include/linxipc/directory/{LinxServerNameList,e_Process}.h \
        include/linxipc/platform/{linx,LogClient,DiffTime,Watchdog,FileDescriptor,export}.h; do
        [[ -e $prefix/$file ]] || fail "missing: $file"
    done
    # What is not public stays at home, and every header can be the first one included.
    (cd "$prefix/include/linxipc" && find . -name '*.h') | while read -r file; do
        "$CXX" -std=c++17 -fsyntax-only -x c++ -I"$prefix/include/linxipc" -include "$file" /dev/null
    done
    [[ $(find "$prefix/include" -name '*.h' | wc -l) -eq 11 ]] || fail "other headers than the eleven public ones"
}

ACMakeConsumerBuildsAndRuns() {
    rm -rf "$SCRATCH/consumer-cmake"
    "$CMAKE" -G Ninja -S "$SOURCE/tests/install/consumer" -B "$SCRATCH/consumer-cmake" -DCMAKE_PREFIX_PATH="$prefix"
    "$CMAKE" --build "$SCRATCH/consumer-cmake"
    run_consumers "$SCRATCH/consumer-cmake"
}

APkgConfigConsumerBuildsAndRuns() {
    local consumer=$SOURCE/tests/install/consumer out=$SCRATCH/consumer-pkgconfig flags
    export PKG_CONFIG_PATH=$prefix/$LIBDIR/pkgconfig LD_LIBRARY_PATH=$prefix/$LIBDIR
    [[ $(pkg-config --modversion linxipc linxhost | uniq) == "$VERSION" ]] || fail "version is not $VERSION"
    mkdir -p "$out"
    read -ra flags < <(pkg-config --cflags --libs linxipc linxhost)
    "$CXX" -std=c++17 "$consumer/library_user.cpp" -o "$out/library_user" "${flags[@]}"
    read -ra flags < <(pkg-config --cflags --libs linxhost)
    "$CC" "$consumer/platform_user.c" -o "$out/platform_user" "${flags[@]}"
    run_consumers "$out"
}

TheLibrariesCarryTheirSonames() {
    local file
    for file in "$library" "$platform"; do
        [[ $(readelf -d "$file") == *"soname: [${file##*/}.$SOVERSION]"* ]] || fail "$file has another SONAME"
        [[ $(readlink -f "$file") == "$file.$VERSION" ]] || fail "$file is not a link to $file.$VERSION"
    done
}

# lists LINES NAME...: each name begins a line.
lists() {
    local names=$1 name
    for name in "${@:2}"; do
        [[ $'\n'$names == *$'\n'"$name"* ]] || fail "missing: $name"
    done
}

AnExternalBuildHasNothingOfTheHost() {
    local build=$SCRATCH/external place=$SCRATCH/external-prefix names shared
    rm -rf "$build" "$place"
    "$CMAKE" -G Ninja -S "$SOURCE" -B "$build" -DLINXIPC_PLATFORM=external -DLINXIPC_TESTS=OFF \
        -DCMAKE_INSTALL_LIBDIR="$LIBDIR"
    "$CMAKE" --build "$build"
    "$CMAKE" --install "$build" --prefix "$place"
    [[ -z $(find "$build" "$place" -name '*linxhost*') ]] || fail "the platform was built"
    names=$(exported "$place/$LIBDIR/libLinxIpc.so")
    shared=$(comm -12 <(sort -u <<<"$names") <(exported "$platform" | sort -u))
    [[ -z $shared ]] || fail "defines what the platform defines: $shared"
    lists "$(nm -DC --undefined-only "$place/$LIBDIR/libLinxIpc.so" | sed 's/^ *U //')" linx_open LogClient::Instance
}

"$1"
