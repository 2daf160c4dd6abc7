# Entry points. Every target installs missing build dependencies first.
JOBS ?= $(shell nproc)
BUILD ?= build
CMAKE_FLAGS ?=
CTEST_FLAGS ?= --output-on-failure -j $(JOBS)
PREFIX ?= /usr/local
MACHINE ?=
RUN_FLAGS ?= $(if $(MACHINE),--machine $(MACHINE))

.PHONY: all deps build test test-asan test-tsan bench format run install clean

all: build

deps:
	@bash tools/install-deps.sh

build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)
	cmake --build $(BUILD) -j $(JOBS)

test: build
	cd $(BUILD) && ctest $(CTEST_FLAGS)

test-asan: deps
	cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DOSTREL_SANITIZE=address -DOSTREL_BUILD_BENCH=OFF $(CMAKE_FLAGS)
	cmake --build build-asan -j $(JOBS)
	cd build-asan && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 ctest $(CTEST_FLAGS)

test-tsan: deps
	cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=Debug -DOSTREL_SANITIZE=thread -DOSTREL_BUILD_BENCH=OFF $(CMAKE_FLAGS)
	cmake --build build-tsan -j $(JOBS)
	cd build-tsan && TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 ctest $(CTEST_FLAGS)

bench: deps
	cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DOSTREL_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build build-release -j $(JOBS)
	@for b in build-release/bin/*_bench; do echo "== $$b"; $$b --benchmark_counters_tabular=true || exit 1; done

format:
	@git ls-files '*.cpp' '*.h' '*.hpp' '*.c' | xargs clang-format -i

# Builds what the host program needs (not the tests) and runs it on this
# computer; MACHINE=examples/machines/laptop.xml serves a simulated machine.
run: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)
	cmake --build $(BUILD) --target ostrel Morvain -j $(JOBS)
	$(BUILD)/bin/ostrel devices $(RUN_FLAGS)
	$(BUILD)/bin/ostrel tests $(RUN_FLAGS)

# The prefix is also given at configure time: the installed libraries look for
# share/ostrel under it (OSTREL_DATA_DIR overrides after moving the tree).
install: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=$(abspath $(PREFIX)) $(CMAKE_FLAGS)
	cmake --build $(BUILD) --target ostrel Morvain -j $(JOBS)
	cmake --install $(BUILD) --prefix $(abspath $(PREFIX))

clean:
	rm -rf build build-asan build-tsan build-release
