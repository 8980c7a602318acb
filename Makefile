# The ways in. CMake does the work: presets, targets and tests are there for those who want more than this.

.DEFAULT_GOAL := help
MAKEFLAGS += --no-print-directory
.PHONY: $(shell sed -n 's/^\([a-z0-9-]*\):.*/\1/p' $(firstword $(MAKEFILE_LIST)))

# $(call build,PRESET,TARGET...): configures quietly and builds; everything where no target is named.
build = @cmake --preset $1 >/dev/null && cmake --build --preset $1 $(if $2,--target $2)

# $(call option,--name,VALUE): nothing where the user gave no value.
option = $(if $2,$1 $2)

help: ## Lists the targets
	@awk -F ':.*## ' '/^[a-z0-9-]+:.*## / {printf "  make %-14s %s\n", $$1, $$2}' $(MAKEFILE_LIST)

demo: dependencies ## Builds and runs the demonstration device; ARGS='--help' tells its options
	$(call build,release,linx-demo $(if $(findstring --nodes,$(ARGS)),linx-link))
	@build/release/demo/linx-demo $(ARGS)

clean: ## Removes everything that was built
	rm -rf build

# Tests

test: ## Builds and runs all tests: release, then under the address and, where there are threads, the thread sanitizer
	@$(MAKE) test-release
	@$(MAKE) test-asan
	@$(MAKE) test-tsan

test-release: dependencies ## Builds and runs the tests as they ship
test-debug: dependencies ## The same without optimisation
test-asan: dependencies ## The same under the address and undefined-behaviour sanitizers
test-tsan: dependencies ## What has threads, under the thread sanitizer
test-clang: clang-dependencies ## The same with clang++

# Where addresses are shuffled further than the thread sanitizer can follow, its programs run unshuffled.
test-tsan: run := $(shell [ "$$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0)" -le 28 ] || echo setarch -R)

test-release test-debug test-asan test-tsan test-clang: test-%:
	@echo "== $*"
	@cmake --preset $* >/dev/null
	@$(run) cmake --build --preset $*
	@$(run) ctest --preset $*

# $(call build-for,MACHINE,OPTION...,TARGET...): the same as `release` for what cmake/MACHINE.cmake describes.
build-for = @cmake --preset release -B build/$1 --toolchain $(CURDIR)/cmake/$1.cmake -DLINXIPC_BUILD_BENCH=OFF $2 >/dev/null && \
            cmake --build build/$1 $(if $3,--target $3)
test-on = @ctest --test-dir build/$1 --output-on-failure --no-tests=error --parallel 4

test-powerpc: ## The same for 32-bit big-endian PowerPC Linux, run by an emulator
test-aarch64: ## The same for 64-bit ARM Linux
test-armhf: ## The same for 32-bit ARM Linux
test-powerpc test-aarch64 test-armhf: test-%: %-dependencies
	@echo "== $*"
	$(call build-for,$*)
	$(call test-on,$*)

test-mixed: mixed-dependencies ## Runs processes of 32 and of 64 bits in one domain
	@echo "== mixed"
	@$(MAKE) run-mixed

run-mixed:
	$(call build,release,linx linx-demo mixed_test)
	$(call build-for,x86-32,-DLINXIPC_OTHER_SIZE=$(CURDIR)/build/release,linx linx-demo abi_test mixed_test)
	$(call test-on,x86-32) --tests-regex '^(abi|(abi|mixed|processes)_test)\.'

# Proofs that take longer than a test may

models: dependencies ## Explores the endpoints' own source on a modelled weak memory; ARGS='--help' tells its options
	$(call build,release,models/all)
	@build/release/models/linx-models --jobs $$(nproc) $(ARGS)
	@ctest --preset release --tests-regex '^models[.]caught'

storm: dependencies ## Kills processes amid their traffic and checks what others see of it; KILLS=10000, SEED=
	$(call build,release,linx-storm)
	@build/release/tests/storm/linx-storm --kills $(or $(KILLS),10000) $(call option,--seed,$(SEED))

link-storm: dependencies ## Kills and stops links and the servers that talk through them, and keeps their books; KILLS=1000, SEED=
	$(call build,release,linx-link-storm)
	@build/release/tests/link/storm/linx-link-storm --kills $(or $(KILLS),1000) $(call option,--seed,$(SEED))

# Without what malloc keeps at hand for a thread, which counts as in use and hides small leaks.
soak: dependencies ## Has endpoints live long among others that come and go, and counts what they hold; MINUTES=10, SEED=
	$(call build,release,linx-soak)
	@GLIBC_TUNABLES=glibc.malloc.tcache_count=0 build/release/tests/soak/linx-soak --minutes $(or $(MINUTES),10) $(call option,--seed,$(SEED))

crash-sites: dependencies ## Kills a process at every change of shared memory, some minutes; ARGS='--help' tells its options
	$(call build,release,linx-crash-sites)
	@build/release/tests/crash/linx-crash-sites $(ARGS)

call-sites: dependencies ## Kills, stops and fails a process at every system call, a quarter of an hour; ARGS='--help' tells its options
	$(call build,release,linx-call-sites)
	@build/release/tests/calls/linx-call-sites $(ARGS)

simulate: dependencies ## Runs the sessions of links over a network that loses, doubles, delays, cuts and stops; SEEDS=10000, FIRST=1
	$(call build,release,tests/simulate/all)
	@build/release/tests/simulate/linx-simulate --seeds $(or $(SEEDS),10000) --jobs $$(nproc) $(call option,--first,$(FIRST))
	@ctest --preset release --tests-regex '^simulate[.]caught'

fuzz: dependencies fuzz-dependencies ## Searches for inputs that no operation withstands; SECONDS=60 for each fuzzer
	$(call build,fuzz,fuzz_operations fuzz_arena fuzz_session)
	@tests/fuzz/run build/fuzz $(or $(SECONDS),60)

scribble: dependencies ## Scribbles over the memory of processes at their work; ROUNDS=10000, SEED=
	$(call build,asan,linx-scribble)
	@build/asan/tests/scribble/linx-scribble --rounds $(or $(ROUNDS),10000) $(call option,--seed,$(SEED))

mutants: mutants-dependencies ## Breaks single steps and tells which no test notices, half an hour; COUNT=50, SEED=, ONLY=
	@tests/mutants/run --count $(or $(COUNT),50) $(call option,--seed,$(SEED)) $(foreach path,$(ONLY),--only $(path))

# Figures

bench: bench-dependencies ## Measures LinxIpc beside other ways to talk; ARGS='--help' tells its options
	$(call build,release,linx-bench)
	@build/release/bench/linx-bench $(ARGS)

bench-docs: ## Measures again what docs/performance shows
	@$(MAKE) bench ARGS='--json docs/performance/figures.json --markdown docs/performance/figures.md --plots docs/performance'

instructions: bench-dependencies ## Counts the instructions of a Notify and of a Receive
	$(call build,release,linx-instructions)
	@bench/instructions/count build/release/bench/linx-instructions

abi-baseline: dependencies ## Renews what the binary interface is compared with, see docs/abi.md
	$(call build,release,abi-baseline)

# Packages and documents

docs: docs-dependencies ## Makes one site of the documents, the manual pages and the reference: build/docs/index.html
	@docs/site/build build/docs

packages: packages-dependencies ## Builds the Debian packages into build/packages
	@scripts/build-packages build/packages
	@ls build/packages/*.deb

packages-test: packages-test-dependencies ## Builds them twice, and installs, uses and removes them in a fresh Debian; needs root
	@scripts/test-packages

# What all that needs on Debian

dependencies:
	@scripts/install-dependencies

clang-dependencies:
	@scripts/install-dependencies clang

fuzz-dependencies: clang-dependencies
	@scripts/install-dependencies libclang-rt-dev

mutants-dependencies: dependencies
	@scripts/install-dependencies python3 git

bench-dependencies:
	@scripts/install-dependencies libzmq3-dev libnng-dev libiceoryx-posh-dev iceoryx dbus-daemon gnuplot-nox valgrind

powerpc-dependencies: packages = g++-powerpc-linux-gnu
aarch64-dependencies: packages = g++-aarch64-linux-gnu
armhf-dependencies: packages = g++-arm-linux-gnueabihf
mixed-dependencies: packages = g++-i686-linux-gnu
powerpc-dependencies aarch64-dependencies armhf-dependencies mixed-dependencies:
	@scripts/install-dependencies $(packages) qemu-user-static googletest

docs-dependencies: dependencies
	@scripts/install-dependencies doxygen python3-markdown

packages-dependencies: docs-dependencies
	@scripts/install-dependencies dpkg-dev debhelper dh-python

packages-test-dependencies: packages-dependencies
	@scripts/install-dependencies lintian debootstrap
