# Front door: `make demo` archives a sample document under Wine, `make test` runs every test.
BUILD_DIR ?= build
JOBS ?= 2
# cmake --build runs make underneath: without this every line of it says which folder it is in.
MAKEFLAGS += --no-print-directory

.PHONY: all deps configure build test demo package bench soak profile format clean

all: build

deps:
	@sh scripts/install-deps.sh

$(BUILD_DIR)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake -DCMAKE_BUILD_TYPE=RelWithDebInfo

configure: $(BUILD_DIR)/CMakeCache.txt

build: deps configure
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	sh scripts/run-tests.sh $(BUILD_DIR)

demo: build
	sh scripts/run-demo.sh $(BUILD_DIR)

# The MSI package for administrators, from the build: build/installer/TalvornAddin.msi.
package: build
	cmake --build $(BUILD_DIR) --target msi_package

# Timings and resource counters of the add-in in the simulated hosts (never part of `make test`).
bench: build
	sh scripts/run-bench.sh $(BUILD_DIR) bench

soak: build
	sh scripts/run-bench.sh $(BUILD_DIR) soak

# Where archiving 30 mails spends its time, sampled (tools/bench/Sampler.h).
profile: build
	sh scripts/run-bench.sh $(BUILD_DIR) profile

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h')

clean:
	rm -rf $(BUILD_DIR)
