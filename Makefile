# Every target installs what is missing (scripts/install-deps), configures and builds incrementally.
BUILD_DIR    ?= build
SANITIZE_DIR ?= build-sanitize
BUILD_TYPE   ?= RelWithDebInfo
WERROR       ?= OFF
PREFIX       ?= /usr/local
JOBS         ?= $(shell nproc)
GENERATOR    := $(shell command -v ninja >/dev/null 2>&1 && echo "-G Ninja")

CMAKE_FLAGS := -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DTARNEL_WERROR=$(WERROR) \
               -DCMAKE_INSTALL_PREFIX=$(PREFIX)

.PHONY: all deps build demo test test-sanitize bench install format clean

all: build

deps:
	@scripts/install-deps

$(BUILD_DIR)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD_DIR) $(GENERATOR) $(CMAKE_FLAGS)

build: deps $(BUILD_DIR)/CMakeCache.txt
	cmake -S . -B $(BUILD_DIR) $(CMAKE_FLAGS) >/dev/null
	cmake --build $(BUILD_DIR) -j $(JOBS)

demo: build
	$(BUILD_DIR)/tools/tarnel demo

test: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j $(JOBS)

test-sanitize: deps
	cmake -S . -B $(SANITIZE_DIR) $(GENERATOR) -DCMAKE_BUILD_TYPE=Debug -DTARNEL_SANITIZE=ON \
	      -DTARNEL_WERROR=$(WERROR) -DTARNEL_BUILD_BENCH=OFF
	cmake --build $(SANITIZE_DIR) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	      ctest --test-dir $(SANITIZE_DIR) --output-on-failure -j $(JOBS)

bench: build
	@for b in $(BUILD_DIR)/bench/*; do [ -x "$$b" ] && [ -f "$$b" ] && "$$b" || true; done

install: build
	cmake --install $(BUILD_DIR)

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR)
