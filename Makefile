# Thin wrapper over CMake.  `make demo` and `make test` install what is missing first.
BUILD       ?= build
BUILD_DEBUG ?= build-debug
JOBS        ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps build debug cuda install package test test-release test-debug test-cuda demo bench validate format clean

all: build

deps:
	@./tools/install-deps.sh

build:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMAKE_FLAGS)
	cmake --build $(BUILD) -j $(JOBS)

debug:
	cmake -S . -B $(BUILD_DEBUG) -DCMAKE_BUILD_TYPE=Debug $(CMAKE_FLAGS)
	cmake --build $(BUILD_DEBUG) -j $(JOBS)

# Installs the programs, recipes, manual and man pages under PREFIX (bin/, share/).
PREFIX ?= /usr/local
install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

# The Debian package riffle_VERSION_ARCH.deb, built for any x86-64 machine (no -march=native).
BUILD_PACKAGE ?= build-package
package: deps
	cmake -S . -B $(BUILD_PACKAGE) -DCMAKE_BUILD_TYPE=Release -DRIFFLE_NATIVE=OFF -DBUILD_TESTING=OFF $(CMAKE_FLAGS)
	cmake --build $(BUILD_PACKAGE) -j $(JOBS)
	cd $(BUILD_PACKAGE) && cpack -G DEB
	@ls $(BUILD_PACKAGE)/riffle_*.deb

# The GPU back end's build (needs nvcc; /usr/local/cuda/bin is looked in too) and its tests,
# which report themselves skipped where there is no GPU.
BUILD_CUDA ?= build-cuda
cuda:
	cmake -S . -B $(BUILD_CUDA) -DCMAKE_BUILD_TYPE=Release -DRIFFLE_CUDA=ON $(CMAKE_FLAGS)
	cmake --build $(BUILD_CUDA) -j $(JOBS) --target riffle riffle_tests_gpu

test-cuda: cuda
	cd $(BUILD_CUDA) && ctest -L gpu --output-on-failure < /dev/null

# The whole suite, in Release and then in the Debug (sanitizer, bounds-checked) build. Tests run
# one at a time: each already keeps both cores busy with its two OpenMP threads.
test: deps test-release test-debug

test-release: build
	cd $(BUILD) && ctest --output-on-failure < /dev/null

test-debug: debug
	cd $(BUILD_DEBUG) && ctest --output-on-failure < /dev/null

demo: deps build
	./tools/demo.sh $(BUILD)

# The validation tier (not part of `make test`): the coarse grids, or with FINE=1 the fine ones too.
validate: deps
	FINE=$(FINE) ./validation/run.sh $(abspath $(BUILD))

bench: deps
	./bench/run.sh

# Puts every C++ file in the layout of .clang-format (checked by the test lint.format).
format:
	git ls-files '*.cpp' '*.hpp' '*.h' '*.c' '*.cu' '*.cuh' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(BUILD_DEBUG) demo
