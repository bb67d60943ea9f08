# Thin wrapper over CMake. `make run` and `make test` do all the set-up.
#   make            build (installs missing Debian packages first)
#   make run        krt_cli in shell mode against the simulated RAID controller
#   make test       the whole suite (also installs the QEMU test's emulator set)
#   make test SANITIZE=1   the same suite under AddressSanitizer + UBSan (build-asan/)
#   make test RELEASE=1    the same suite in the Release configuration packagers use (build-release/)
#   make bench      benchmarks
#   make format     clang-format the tree

SANITIZE ?= 0
RELEASE ?= 0
JOBS ?= $(shell nproc)
ifeq ($(SANITIZE),1)
BUILD ?= build-asan
CMAKE_FLAGS += -DKRT_SANITIZE=ON
else ifeq ($(RELEASE),1)
BUILD ?= build-release
CMAKE_FLAGS += -DCMAKE_BUILD_TYPE=Release
else
BUILD ?= build
endif

.PHONY: all deps configure build run test bench format clean

all: build

deps:
	@scripts/install-deps.sh

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS)

configure: deps $(BUILD)/CMakeCache.txt

build: configure
	cmake --build $(BUILD) -j $(JOBS)

run: build
	$(BUILD)/sim/krtsim exec -- $(BUILD)/krt_cli

test: build
	@scripts/install-deps.sh qemu || echo "make: the emulator set is not installed; the QEMU test will be skipped."
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) --timeout 300

bench: build
	$(BUILD)/bench/krt_bench

format:
	git ls-files '*.cpp' '*.h' '*.h.in' | grep -v '\.in$$' | xargs clang-format -i

clean:
	rm -rf build build-asan build-release
