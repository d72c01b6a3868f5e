# A thin front to CMake. Each target first makes sure that what it needs is there
# and installs what is missing with apt-get when it can.

.PHONY: all demo test bench performance fuzz faults install package lint format clean

JOBS := $(shell nproc 2>/dev/null || echo 2)
BUILD := build/release

all: $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

$(BUILD)/build.ninja: CMakePresets.json
	scripts/need build test
	cmake --preset release

# Runs the daemon of examples/loadwatch for ten seconds and shows what it does.
demo:
	scripts/need build
	cmake --preset release -DSTOCK_TESTS=OFF -B build/demo >/dev/null
	cmake --build build/demo -j $(JOBS)
	scripts/demo build/demo

test:
	scripts/need build test
	cmake --preset release
	cmake --build $(BUILD) -j $(JOBS)
	ctest --preset release

bench:
	scripts/need build bench
	cmake --preset bench
	cmake --build build/bench -j $(JOBS)
	scripts/bench build/bench/bench

# Writes docs/performance.md from a run of its own; let the machine be quiet.
performance: bench
	scripts/need performance
	scripts/performance build/bench/bench

# Feeds every reader of foreign bytes what it never saw, for a minute each.
fuzz:
	scripts/fuzz

# Makes every call of every scenario fail, cuts the power and kills: tests/faults.
faults:
	scripts/need build test faults
	cmake --preset release
	cmake --build $(BUILD) -j $(JOBS) --target faults

install:
	scripts/need build
	cmake --preset release -DSTOCK_TESTS=OFF -B build/install >/dev/null
	cmake --build build/install -j $(JOBS)
	cmake --install build/install $(if $(PREFIX),--prefix $(PREFIX))

# Debian packages, in build/packages.
package:
	scripts/need build package
	cmake --preset release -DSTOCK_TESTS=OFF -B build/install >/dev/null
	cmake --build build/install -j $(JOBS)
	cpack --config build/install/CPackConfig.cmake -B build/packages >/dev/null
	rm -rf build/packages/_CPack_Packages
	ls build/packages

lint:
	scripts/need build test lint
	scripts/lint

format:
	scripts/need lint
	scripts/lint --fix

clean:
	rm -rf build
