# Thin wrapper over CMake. `make run` and `make test` do all the set-up.
#   make            build (installs missing Debian packages first)
#   make run        krt_cli in shell mode against the simulated RAID controller
#   make test       the whole suite (also installs the QEMU test's emulator set)
#   make test SANITIZE=1   the same suite under AddressSanitizer + UBSan (build-asan/)
#   make test RELEASE=1    the same suite in the Release configuration packagers use (build-release/)
#   make bench      benchmarks
#   make fuzz       every libFuzzer target for FUZZ_SECONDS each (clang, build-fuzz/)
#   make coverage   the suite on a Debug build with gcov (build-coverage/), then the
#                   line, function and branch coverage of src/ and of sim/
#   make install    install krt_cli, its manual page and completion, and the simulator
#                   (PREFIX=/usr/local, DESTDIR= as usual)
#   make package    Debian packages krt-cli, krt-cli-sim and krt-cli-metrics, the ESXi tarball
#                   and the Ansible collection's tarball (in $(BUILD)/packages)
#   make format     clang-format the tree

SANITIZE ?= 0
RELEASE ?= 0
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 60
ifeq ($(SANITIZE),1)
BUILD ?= build-asan
CMAKE_FLAGS += -DKRT_SANITIZE=ON
else ifeq ($(RELEASE),1)
BUILD ?= build-release
CMAKE_FLAGS += -DCMAKE_BUILD_TYPE=Release
else
BUILD ?= build
endif

.PHONY: all deps deps-package deps-test configure build run test bench fuzz coverage format clean install package

all: build

deps:
	@scripts/install-deps.sh

deps-package:
	@scripts/install-deps.sh package

# The suite also needs the package tools, the tools of contrib/'s tests
# (Ansible, promtool) and, for the Linux-host test, an emulator and a kernel;
# without the emulator that one test is skipped.
deps-test: deps-package
	@scripts/install-deps.sh contrib
	@scripts/install-deps.sh qemu || echo "make: the emulator set is not installed; the QEMU test will be skipped."

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS)

configure: deps $(BUILD)/CMakeCache.txt

build: configure
	cmake --build $(BUILD) -j $(JOBS)

run: build
	$(BUILD)/sim/krtsim exec -- $(BUILD)/krt_cli

test: deps-test build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) --timeout 300

install: build
	DESTDIR="$(DESTDIR)" cmake --install $(BUILD) $(if $(PREFIX),--prefix "$(PREFIX)")

package: deps-package build
	cd $(BUILD) && cpack
	ansible-galaxy collection build contrib/ansible --output-path $(BUILD)/packages --force

bench: build
	$(BUILD)/bench/krt_bench

# The fuzz targets build apart from the rest, with clang and the fuzzer's
# instrumentation; a fault found fails the run.
build-fuzz/CMakeCache.txt:
	CC=clang CXX=clang++ cmake -S . -B build-fuzz -DKRT_FUZZ=ON

fuzz:
	@scripts/install-deps.sh fuzz
	$(MAKE) build-fuzz/CMakeCache.txt
	cmake --build build-fuzz -j $(JOBS) --target fuzzers
	tests/fuzz/run.sh build-fuzz $(FUZZ_SECONDS)

# Coverage of the suite the way CI runs it, less the QEMU guest and the
# package builds (they measure other programs). gcov's counters are merged
# across the many processes of the end-to-end tests. Branches are given
# twice: as gcov counts them, with an edge for every call that may throw
# (the JSON library's calls in capture/ carry hundreds no test can take),
# and as the decisions the code itself makes.
COVERAGE_FLAGS = -DCMAKE_BUILD_TYPE=Debug \
	-DCMAKE_C_FLAGS=--coverage -DCMAKE_CXX_FLAGS=--coverage \
	-DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage
COVERAGE_EXCLUDE ?= ^(LinuxHost|PackageBuild|Packages\.)

build-coverage/CMakeCache.txt:
	cmake -S . -B build-coverage $(COVERAGE_FLAGS)

coverage: deps
	@scripts/install-deps.sh coverage
	$(MAKE) build-coverage/CMakeCache.txt
	cmake --build build-coverage -j $(JOBS)
	find build-coverage -name '*.gcda' -delete
	cd build-coverage && ctest -j $(JOBS) --timeout 600 -E '$(COVERAGE_EXCLUDE)' || echo "make: some tests failed; coverage follows all the same"
	@for part in src sim; do \
	  echo "== coverage of $$part/"; \
	  gcovr -r . --object-directory build-coverage --exclude-directories "build-coverage/CMakeFiles" --filter "$$part/" --print-summary -o "build-coverage/coverage-$$part.txt"; \
	  gcovr -r . --object-directory build-coverage --exclude-directories "build-coverage/CMakeFiles" --filter "$$part/" --exclude-throw-branches --print-summary -o "build-coverage/coverage-$$part-decisions.txt" | sed -n 's/^branches:/branches (decisions only, no exception edges):/p'; \
	done

format:
	git ls-files '*.cpp' '*.h' '*.h.in' | grep -v '\.in$$' | xargs clang-format -i

clean:
	rm -rf build build-asan build-release build-fuzz build-coverage
