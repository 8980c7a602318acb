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
exported() { nm -DC --without-symbol-versions --defined-only "$1" | grep -v ' A ' | cut -d ' ' -f 3-; }

read -ra emulator <<<"${EMULATOR:-}"

# run PROGRAM EXPECTED: in a domain that goes away with it.
run() {
    local domain output
    domain=$(mktemp -d /dev/shm/linx.install.XXXXXX)
    output=$(LINX_DOMAIN=$domain "${emulator[@]}" "$1") || { rm -rf "$domain"; fail "$1 failed: $output"; }
    rm -rf "$domain"
    [[ $output == "$2" ]] || fail "$1 wrote: $output"
}

# configure_consumer PLACE option...
configure_consumer() {
    rm -rf "$1"
    "$CMAKE" -G Ninja -S "$SOURCE/tests/install/consumer" -B "$1" "${@:2}"
}

# build_consumer PLACE option...: by CMake.
build_consumer() {
    configure_consumer "$@"
    "$CMAKE" --build "$1"
}

# compile_consumer PLACE PREFIX option...: by hand, with what pkg-config says of an installed package.
compile_consumer() {
    local consumer=$SOURCE/tests/install/consumer out=$1 flags
    export PKG_CONFIG_PATH=$2/$LIBDIR/pkgconfig
    mkdir -p "$out"
    read -ra flags < <(pkg-config "${@:3}" --cflags --libs linxipc-host)
    "$CXX" -std=c++17 "$consumer/library_user.cpp" -o "$out/library_user" "${flags[@]}"
    read -ra flags < <(pkg-config "${@:3}" --cflags --libs linxhost)
    "$CC" "$consumer/platform_user.c" -o "$out/platform_user" "${flags[@]}"
    read -ra flags < <(pkg-config "${@:3}" --cflags --libs linxipc-testing)
    "$CXX" -std=c++17 "$SOURCE"/examples/stairlight/stair_light{,_test}.cpp -o "$out/server_test" "${flags[@]}"
}

# build_libraries PLACE option...: as users are told to, but there.
build_libraries() {
    rm -rf "$1"
    "$CMAKE" -S "$SOURCE" --preset libraries -B "$1" -DLINXIPC_SYSTEMD="$SYSTEMD" -DCMAKE_INSTALL_LIBDIR="$LIBDIR" \
        "${@:2}"
    "$CMAKE" --build "$1"
}

# expect_libraries_alone BUILD: nothing else was linked there.
expect_libraries_alone() {
    local built
    built=$(find "$1" -type f -perm -u+x -not -path '*/CMakeFiles/*' -printf '%f\n' | LC_ALL=C sort | xargs)
    [[ $built == "libLinxIpc.so.$VERSION liblinxhost.so.$VERSION" ]] || fail "built: $built"
}

# run_consumers PLACE [TEST...]: those that every place has, and further tests of the server.
run_consumers() {
    local test
    run "$1/library_user" "round trip, ConfigMgr"
    run "$1/platform_user" "round trip"
    for test in server_test "${@:2}"; do
        run "$1/$test" "the light works"
    done
}

# The package is moved after it was installed: nothing in it may name the place it was installed to.
TheTreeInstallsAndMoves() {
    rm -rf "$prefix" "$SCRATCH/first-place"
    "$CMAKE" --install "$BUILD" --prefix "$SCRATCH/first-place"
    mv "$SCRATCH/first-place" "$prefix"
}

InstallsWhatAConsumerNeeds() {
    local file
    for file in "$LIBDIR"/lib{LinxIpc.so,linxhost.so,linxtesting.a} \
        "$LIBDIR"/pkgconfig/{linxipc,linxhost,linxipc-host,linxipc-testing}.pc \
        "$LIBDIR"/cmake/linxipc/linxipc{Config,ConfigVersion,Targets,TestingTargets}.cmake share/doc/linxipc/LICENSE \
        include/linxipc/ipc/{linxIpc,LogLevel,ReservedSignal}.h \
        include/linxipc/directory/{LinxServerNameList,e_Process}.h include/linxipc/log/LogLevel.h \
        include/linxipc/platform/{linx,LogClient,DiffTime,Watchdog,FileDescriptor,export}.h \
        include/linxipc/testing/RecordingPlatform.h \
        lib/python3/dist-packages/{linx.py,pytest_linx/__init__.py}; do
        [[ -e $prefix/$file ]] || fail "missing: $file"
    done
    # What is not public stays at home, and every header can be the first one included.
    (cd "$prefix/include/linxipc" && find . -name '*.h') | while read -r file; do
        "$CXX" -std=c++17 -fsyntax-only -x c++ -I"$prefix/include/linxipc" -include "$file" /dev/null
    done
    [[ $(find "$prefix/include" -name '*.h' | wc -l) -eq 13 ]] || fail "other headers than the thirteen public ones"
}

# expect_manual PLACE SECTIONS: there is every page of these, and nothing else.
expect_manual() {
    diff <(cd "$SOURCE/man" && printf '%s\n' *.[$2] | sed -E 's|.*[.]([1-8])$|man\1/&|' | LC_ALL=C sort) \
        <(cd "$1" && find . -type f -printf '%P\n' | LC_ALL=C sort) || fail "other pages than those in man/"
    find "$1" -type f | while read -r page; do
        cmp "$SOURCE/man/${page##*/}" "$page"
    done
}

ThePagesOfTheManualAreInTheirSections() {
    local sections=137
    [[ $LINKS != 1 ]] || sections=13578
    expect_manual "$prefix/$MANDIR" "$sections"
}

TheManualIsAComponentOfItsOwn() {
    local place=$SCRATCH/manual-prefix
    rm -rf "$place"
    "$CMAKE" --install "$BUILD" --prefix "$place" --component doc
    [[ -z $(find "$place" -type f -not -path "$place/$MANDIR/*") ]] || fail "more than the manual was installed"
    expect_manual "$place/$MANDIR" 37
}

ThePlatformForTestsIsAComponentOfItsOwn() {
    local place=$SCRATCH/testing-prefix without=$SCRATCH/prefix-without-testing file output
    rm -rf "$place" "$without"
    "$CMAKE" --install "$BUILD" --prefix "$place" --component testing
    [[ $(find "$place" -type f | wc -l) -eq 5 ]] || fail "installed: $(find "$place" -type f)"
    cp -a "$prefix" "$without"
    (cd "$place" && find . -type f -print0) | (cd "$without" && xargs -0 rm)
    configure_consumer "$SCRATCH/consumer-of-less" -DCMAKE_PREFIX_PATH="$without" -DLINXIPC_COMPONENTS=
    output=$(configure_consumer "$SCRATCH/consumer-of-less" -DCMAKE_PREFIX_PATH="$without" 2>&1) &&
        fail "the component was found"
    [[ $output == *"its component 'testing' is not installed"* ]] || fail "$output"
}

PytestFindsThePluginAndTheLibrary() {
    local python test=$SCRATCH/plugin_test.py output
    [[ -z ${EMULATOR:-} ]] || { echo "Skipped: there is no interpreter for the library."; exit 77; }
    # Debian's packages are for its own interpreter, which need not be the first one in the path.
    for python in python3 /usr/bin/python3 none; do
        "$python" -c 'import pytest' 2>/dev/null && break
    done
    [[ $python != none ]] || { echo "Skipped: no python3 has pytest."; exit 77; }
    printf 'def test_it(domain): domain.peer("peer").send("peer", 7); domain.verify()\n' >"$test"
    export PYTHONPATH=$prefix/lib/python3/dist-packages LD_LIBRARY_PATH=$prefix/$LIBDIR PYTHONDONTWRITEBYTECODE=1
    output=$("$python" -m pytest -p no:cacheprovider "$test") && fail "nothing unexpected: $output"
    [[ $output == *"plugins: linxipc-$VERSION"* ]] || fail "pytest has no plugin: $output"
    [[ $output == *"peer 'peer' got, and nobody expects it:"* ]] || fail "$output"
}

# installed PLACE: all that is there.
installed() { (cd "$1" && find . -type f,l -printf '%P\n' | LC_ALL=C sort); }

# What runs, what compiles and what is read can be installed apart, and together they are everything.
TheComponentsAreTheWhole() {
    local place=$SCRATCH/components-prefix component file
    rm -rf "$place"
    for component in runtime dev tools link testing python doc; do
        "$CMAKE" --install "$BUILD" --prefix "$place/$component" --component "$component"
    done
    diff <(installed "$prefix") <(for component in "$place"/*; do installed "$component"; done | LC_ALL=C sort) ||
        fail "the components are not all, or more than that"
    diff <(installed "$place/runtime") - <<-EOF || fail "what runs is not the libraries"
	$LIBDIR/libLinxIpc.so.$SOVERSION
	$LIBDIR/libLinxIpc.so.$VERSION
	$LIBDIR/liblinxhost.so.$SOVERSION
	$LIBDIR/liblinxhost.so.$VERSION
	share/doc/linxipc/LICENSE
	EOF
    for file in "$LIBDIR"/lib{LinxIpc,linxhost}.so include/linxipc/ipc/linxIpc.h; do
        [[ -e $place/dev/$file || -L $place/dev/$file ]] || fail "missing in dev: $file"
    done
}

# In one piece: it wants no library of this package, and reads a domain that programs of the package have made.
TheToolsAreAComponentOfTheirOwn() {
    local place=$SCRATCH/tools-prefix
    rm -rf "$place"
    "$CMAKE" --install "$BUILD" --prefix "$place" --component tools
    diff <(installed "$place") - <<-EOF || fail "other tools"
	bin/linx
	$LIBDIR/wireshark/extcap/linx-extcap
	$LIBDIR/wireshark/plugins/linx.lua
	share/bash-completion/completions/linx
	share/fish/vendor_completions.d/linx.fish
	${MANDIR}/man1/linx.1
	share/zsh/site-functions/_linx
	EOF
    [[ -x $place/$LIBDIR/wireshark/extcap/linx-extcap ]] || fail "Wireshark cannot capture"
    [[ $(readelf -d "$place/bin/linx") != *@(LinxIpc|linxhost)* ]] || fail "it wants a library of the package"
    [[ $("${emulator[@]}" "$place/bin/linx" --version) == "linx $VERSION" ]] || fail "is not $VERSION"
}

TheLinksAreAComponentOfTheirOwn() {
    local place=$SCRATCH/links-prefix
    [[ $LINKS == 1 ]] || { echo "Skipped: linx-link was left out."; exit 77; }
    rm -rf "$place"
    "$CMAKE" --install "$BUILD" --prefix "$place" --component link
    diff <(installed "$place") - <<-EOF || fail "other files of the links"
	lib/systemd/system/linx-link.service
	lib/sysusers.d/linx-link.conf
	sbin/linx-link
	${MANDIR}/man5/linx-link.conf.5
	${MANDIR}/man8/linx-link.8
	EOF
    [[ $(readelf -d "$place/sbin/linx-link") != *RUNPATH* ]] || fail "it looks for libraries in a place of its own"
    [[ $(LD_LIBRARY_PATH=$prefix/$LIBDIR "$place/sbin/linx-link" --version) == "linx-link $VERSION" ]] ||
        fail "is not $VERSION"
}

# Also after use, and nobody else's files and directories.
UninstallingLeavesNothing() {
    local build=$SCRATCH/libraries place=$SCRATCH/uninstalled-prefix modules
    modules=$place/lib/python3/dist-packages
    rm -rf "$place"
    mkdir -p "$place/include" "$modules/__pycache__"
    touch "$place/include/other.h" "$modules/linx_other.py" "$modules/__pycache__/linx_other.cpython-311.pyc"
    installed "$place" >"$SCRATCH/before"
    "$CMAKE" --install "$build" --prefix "$place" --component doc
    "$CMAKE" --install "$build" --prefix "$place"
    mkdir "$modules/pytest_linx/__pycache__"
    touch "$modules"/{__pycache__/linx.cpython-311.pyc,pytest_linx/__pycache__/scene.cpython-311.opt-1.pyc}
    "$CMAKE" --build "$build" --target uninstall
    diff "$SCRATCH/before" <(installed "$place") || fail "something is left, or too little"
    [[ -z $(find "$place" -name 'linxipc*' -o -name 'pytest_linx') ]] || fail "a directory is left"
    ! "$CMAKE" --build "$build" --target uninstall || fail "it was uninstalled twice"
}

EveryHeaderTellsItsLicence() {
    local silent
    silent=$(grep -rLE '^(//|/\*) SPDX-License-Identifier: MIT\b' "$prefix/include") || true
    [[ -z $silent ]] || fail "without a licence: $silent"
    cmp "$SOURCE/LICENSE" "$prefix/share/doc/linxipc/LICENSE"
}

ACMakeConsumerBuildsAndRuns() {
    build_consumer "$SCRATCH/consumer-cmake" -DCMAKE_PREFIX_PATH="$prefix"
    run_consumers "$SCRATCH/consumer-cmake" linked_server_test
}

APkgConfigConsumerBuildsAndRuns() {
    export LD_LIBRARY_PATH=$prefix/$LIBDIR
    compile_consumer "$SCRATCH/consumer-pkgconfig" "$prefix"
    [[ $(pkg-config --modversion linxipc linxhost linxipc-host | uniq) == "$VERSION" ]] || fail "is not $VERSION"
    run_consumers "$SCRATCH/consumer-pkgconfig"
}

AProjectThatBuildsItAlongGetsTheLibrariesAlone() {
    local build=$SCRATCH/consumer-along
    build_consumer "$build" -DLINXIPC_SOURCE="$SOURCE" -DLINXIPC_SYSTEMD="$SYSTEMD"
    expect_libraries_alone "$build/linxipc"
    run_consumers "$build" linked_server_test
}

StaticLibrariesServeBothKindsOfConsumer() {
    local build=$SCRATCH/static place=$SCRATCH/static-prefix program
    build_libraries "$build" -DBUILD_SHARED_LIBS=OFF
    rm -rf "$place"
    "$CMAKE" --install "$build" --prefix "$place"
    [[ -z $(find "$place" -name '*.so*') ]] || fail "shared libraries were installed"
    build_consumer "$SCRATCH/static-cmake" -DCMAKE_PREFIX_PATH="$place"
    compile_consumer "$SCRATCH/static-pkgconfig" "$place" --static
    for program in "$SCRATCH"/static-{cmake,pkgconfig}/{library_user,platform_user,server_test}; do
        [[ $(readelf -d "$program") != *@(LinxIpc|linxhost)* ]] || fail "$program wants a shared library"
    done
    run_consumers "$SCRATCH/static-cmake" linked_server_test
    run_consumers "$SCRATCH/static-pkgconfig"
}

TheLibrariesAloneNeedNothingOfTheTests() {
    local build=$SCRATCH/libraries
    build_libraries "$build" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
    ! grep -iE 'gtest|gmock|cli11' "$build/CMakeCache.txt" || fail "was looked for"
    ! grep -- -Werror "$build/compile_commands.json" || fail "stops at a compiler's warnings"
    expect_libraries_alone "$build"
}

AMissingLibsystemdNamesTheOption() {
    local build=$SCRATCH/lacking output
    rm -rf "$build"
    output=$(PKG_CONFIG_LIBDIR=/nowhere PKG_CONFIG_PATH='' "$CMAKE" -S "$SOURCE" --preset libraries -B "$build" \
        -DLINXIPC_SYSTEMD=ON 2>&1) && fail "libsystemd was found"
    [[ $output == *-DLINXIPC_SYSTEMD=OFF* ]] || fail "$output"
}

TheLibrariesCarryTheirSonames() {
    local file
    for file in "$library" "$platform"; do
        [[ $(readelf -d "$file") == *"soname: [${file##*/}.$SOVERSION]"* ]] || fail "$file has another SONAME"
        [[ $(readlink -f "$file") == "$file.$VERSION" ]] || fail "$file is not a link to $file.$VERSION"
    done
}

TracersFindTheProbes() {
    local probe notes
    "$CXX" -E -x c++ - <<<'#include <sys/sdt.h>' >/dev/null 2>&1 ||
        { echo "Skipped: <sys/sdt.h> is not there."; exit 77; }
    notes=$(readelf -n "$platform")
    for probe in send receive sleep ring reap; do
        [[ $notes == *"Provider: linx"$'\n'"    Name: $probe"$'\n'* ]] || fail "there is no probe linx:$probe"
    done
}

# A program is linked with libraries that have one operation more than those it meets. Nothing calls it before the
# loader has looked for its version.
AProgramThatNeedsALaterVersionIsToldAtStart() {
    local later=$SCRATCH/later name newest output
    rm -rf "$later"
    mkdir "$later"
    printf 'int later(void);\nint later(void) { return 0; }\n' >"$later/library.c"
    printf 'int later(void);\nint main(int count, char **arguments) { return arguments[count - 1][0] ? 0 : later(); }\n' \
        >"$later/program.c"
    for name in LinxIpc linxhost; do
        newest=$(sed -n 's/^\(LINX[A-Z]*_[0-9.]*\) {$/\1/p' "$SOURCE/cmake/$name.map" | tail -n 1)
        { cat "$SOURCE/cmake/$name.map"; echo "LATER { global: later; } $newest;"; } >"$later/$name.map"
        "$CC" -shared -fPIC "$later/library.c" -o "$later/lib$name.so.$SOVERSION" \
            -Wl,--version-script="$later/$name.map" -Wl,-soname,"lib$name.so.$SOVERSION"
        "$CC" "$later/program.c" -o "$later/$name" "$later/lib$name.so.$SOVERSION"
        LD_LIBRARY_PATH=$later run "$later/$name" ""
        output=$(LD_LIBRARY_PATH=$prefix/$LIBDIR "${emulator[@]}" "$later/$name" 2>&1) && fail "$name: it started"
        [[ $output == *"version \`LATER' not found (required by"* ]] || fail "$name: it was told: $output"
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
    build_libraries "$build" -DLINXIPC_PLATFORM=external
    "$CMAKE" --install "$build" --prefix "$place"
    [[ -z $(find "$build" "$place" -name '*linxhost*') ]] || fail "the platform was built"
    names=$(exported "$place/$LIBDIR/libLinxIpc.so")
    shared=$(comm -12 <(sort -u <<<"$names") <(exported "$platform" | sort -u))
    [[ -z $shared ]] || fail "defines what the platform defines: $shared"
    names=$(nm -DC --without-symbol-versions --undefined-only "$place/$LIBDIR/libLinxIpc.so" | sed 's/^ *U //')
    lists "$names" linx_open LogClient::Instance
}

# The machine's platform is ours here, but nobody told the library.
AnExternalBuildRunsOnAPlatformThatTheMachineBrings() {
    local place=$SCRATCH/external-prefix program=$SCRATCH/external/library_user flags
    read -ra flags < <(PKG_CONFIG_PATH=$place/$LIBDIR/pkgconfig pkg-config --cflags --libs linxipc)
    "$CXX" -std=c++17 "$SOURCE/tests/install/consumer/library_user.cpp" -o "$program" "${flags[@]}" "$platform"
    LD_LIBRARY_PATH=$place/$LIBDIR:$prefix/$LIBDIR run "$program" "round trip, ConfigMgr"
}

"$1"
