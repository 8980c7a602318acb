# The ways in. CMake does the work: presets, targets and tests are there for those who want more than this.

.DEFAULT_GOAL := help
.PHONY: help demo test bench bench-docs instructions clean dependencies clang-dependencies mixed-dependencies bench-dependencies
MAKEFLAGS += --no-print-directory

# Where addresses are shuffled further than the thread sanitizer can follow, its programs run unshuffled.
unshuffled := $(shell [ "$$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0)" -le 28 ] || echo setarch -R)

help: ## Lists the targets
	@awk -F ':.*## ' '/^[a-z-]+:.*## / {printf "  make %-14s %s\n", $$1, $$2}' $(MAKEFILE_LIST)

demo: dependencies ## Builds and runs the demonstration device; ARGS='--help' tells its options
	@cmake --preset release >/dev/null
	@cmake --build --preset release --target linx-demo
	@build/release/demo/linx-demo $(ARGS)

test: ## Builds and runs all tests: release, then under the address and the thread sanitizer
	@$(MAKE) test-release
	@$(MAKE) test-asan
	@$(MAKE) test-tsan

test-release: dependencies ## Builds and runs the tests as they ship
test-debug: dependencies ## The same without optimisation
test-asan: dependencies ## The same under the address and undefined-behaviour sanitizers
test-tsan: dependencies ## The same under the thread sanitizer
test-clang: clang-dependencies ## The same with clang++
test-powerpc: powerpc-dependencies ## The same for 32-bit big-endian PowerPC Linux, run by an emulator

test-tsan: run := $(unshuffled)

.PHONY: test-release test-debug test-asan test-tsan test-clang test-powerpc
test-release test-debug test-asan test-tsan test-clang test-powerpc: test-%:
	@echo "== $*"
	@cmake --preset $* >/dev/null
	@$(run) cmake --build --preset $*
	@$(run) ctest --preset $*

.PHONY: test-mixed
test-mixed: mixed-dependencies ## Runs processes of 32 and of 64 bits in one domain, and the tests of host/ in 32 bits
	@echo "== mixed"
	@scripts/runs-32-bits; case $$? in \
	    0) $(MAKE) run-mixed ;; \
	    1) echo "Skipped: this machine runs no programs of 32 bits." ;; \
	    *) exit 1 ;; \
	esac

.PHONY: run-mixed
run-mixed:
	@cmake --preset release >/dev/null
	@cmake --build --preset release --target linx-demo mixed_test
	@cmake --preset x86-32 >/dev/null
	@cmake --build --preset x86-32
	@ctest --preset x86-32

bench: bench-dependencies ## Measures LinxIpc beside other ways to talk; ARGS='--help' tells its options
	@cmake --preset release >/dev/null
	@cmake --build --preset release --target linx-bench
	@build/release/bench/linx-bench $(ARGS)

bench-docs: ## Measures again what docs/performance shows
	@$(MAKE) bench ARGS='--json docs/performance/figures.json --markdown docs/performance/figures.md --plots docs/performance'

instructions: bench-dependencies ## Counts the instructions of a Notify and of a Receive
	@cmake --preset release >/dev/null
	@cmake --build --preset release --target linx-instructions
	@bench/instructions/count build/release/bench/linx-instructions

.PHONY: models
models: dependencies ## Explores the endpoints' own source on a modelled weak memory; ARGS='--help' tells its options
	@cmake --preset release >/dev/null
	@cmake --build --preset release --target models/all
	@build/release/models/linx-models --jobs $$(nproc) $(ARGS)
	@ctest --preset release --tests-regex '^models[.]caught'

.PHONY: storm
storm: dependencies ## Kills processes amid their traffic and checks what others see of it; KILLS=10000, SEED=
	@cmake --preset release >/dev/null
	@cmake --build --preset release --target linx-storm
	@build/release/tests/storm/linx-storm --kills $(or $(KILLS),10000) $(if $(SEED),--seed $(SEED))

.PHONY: soak
# Without what malloc keeps at hand for a thread, which counts as in use and hides small leaks.
soak: dependencies ## Has endpoints live long among others that come and go, and counts what they hold; MINUTES=10, SEED=
	@cmake --preset release >/dev/null
	@cmake --build --preset release --target linx-soak
	@GLIBC_TUNABLES=glibc.malloc.tcache_count=0 build/release/tests/soak/linx-soak --minutes $(or $(MINUTES),10) $(if $(SEED),--seed $(SEED))

.PHONY: crash-sites
crash-sites: dependencies ## Kills a process at every change of shared memory, some minutes; ARGS='--help' tells its options
	@cmake --preset release >/dev/null
	@cmake --build --preset release --target linx-crash-sites
	@build/release/tests/crash/linx-crash-sites $(ARGS)

.PHONY: call-sites
call-sites: dependencies ## Kills, stops and fails a process at every system call, a quarter of an hour; ARGS='--help' tells its options
	@cmake --preset release >/dev/null
	@cmake --build --preset release --target linx-call-sites
	@build/release/tests/calls/linx-call-sites $(ARGS)

.PHONY: fuzz
fuzz: dependencies fuzz-dependencies ## Searches for inputs that no operation withstands; SECONDS=60 for each fuzzer
	@cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz
	@tests/fuzz/run build/fuzz $(or $(SECONDS),60)

.PHONY: scribble
scribble: dependencies ## Scribbles over the memory of processes at their work; ROUNDS=10000, SEED=
	@cmake --preset asan >/dev/null
	@cmake --build --preset asan --target linx-scribble
	@build/asan/tests/scribble/linx-scribble --rounds $(or $(ROUNDS),10000) $(if $(SEED),--seed $(SEED))

.PHONY: mutants
mutants: mutants-dependencies ## Breaks single steps and tells which no test notices, half an hour; COUNT=50, SEED=, ONLY=
	@tests/mutants/run --count $(or $(COUNT),50) $(if $(SEED),--seed $(SEED)) $(foreach path,$(ONLY),--only $(path))

.PHONY: abi-baseline
abi-baseline: dependencies ## Renews what the binary interface is compared with, see docs/abi.md
	@cmake --preset release >/dev/null
	@cmake --build --preset release --target abi-baseline

clean: ## Removes everything that was built
	rm -rf build

dependencies:
	@scripts/install-dependencies

clang-dependencies:
	@scripts/install-dependencies clang

.PHONY: fuzz-dependencies
fuzz-dependencies: clang-dependencies
	@scripts/install-dependencies libclang-rt-dev

.PHONY: mutants-dependencies
mutants-dependencies: dependencies
	@scripts/install-dependencies python3 git

# Not g++-multilib, beside which no cross compiler can be installed.
mixed-dependencies: dependencies
	@scripts/install-dependencies g++-$$(g++ -dumpversion)-multilib

bench-dependencies:
	@scripts/install-dependencies libzmq3-dev libnng-dev libiceoryx-posh-dev iceoryx dbus-daemon gnuplot-nox valgrind

.PHONY: powerpc-dependencies
powerpc-dependencies:
	@scripts/install-dependencies g++-powerpc-linux-gnu qemu-user-static googletest
