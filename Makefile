# Every target installs what is missing (scripts/install-deps), configures and builds incrementally.
BUILD_DIR    ?= build
SANITIZE_DIR ?= build-sanitize
FUZZ_DIR     ?= build-fuzz
FUZZ_SECONDS ?= 180
BUILD_TYPE   ?= RelWithDebInfo
WERROR       ?= OFF
PREFIX       ?= /usr/local
JOBS         ?= $(shell nproc)
GENERATOR    := $(shell command -v ninja >/dev/null 2>&1 && echo "-G Ninja")

CMAKE_FLAGS := -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DTARNEL_WERROR=$(WERROR) \
               -DCMAKE_INSTALL_PREFIX=$(PREFIX)

.PHONY: all deps build demo test test-sanitize fuzz bench install format clean

all: build

deps:
	@scripts/install-deps

$(BUILD_DIR)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD_DIR) $(GENERATOR) $(CMAKE_FLAGS)

build: deps $(BUILD_DIR)/CMakeCache.txt
	cmake -S . -B $(BUILD_DIR) $(CMAKE_FLAGS) >/dev/null
	cmake --build $(BUILD_DIR) -j $(JOBS)

# The demo builds only the tarnel program and the libraries it links.
demo: deps $(BUILD_DIR)/CMakeCache.txt
	cmake -S . -B $(BUILD_DIR) $(CMAKE_FLAGS) >/dev/null
	cmake --build $(BUILD_DIR) -j $(JOBS) --target tarnel_tool
	$(BUILD_DIR)/tools/tarnel demo

test: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j $(JOBS)

test-sanitize: deps
	cmake -S . -B $(SANITIZE_DIR) $(GENERATOR) -DCMAKE_BUILD_TYPE=Debug -DTARNEL_SANITIZE=ON \
	      -DTARNEL_WERROR=$(WERROR) -DTARNEL_BUILD_BENCH=OFF
	cmake --build $(SANITIZE_DIR) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	      ctest --test-dir $(SANITIZE_DIR) --output-on-failure -j $(JOBS)

# Builds every fuzz target of fuzz/ with Clang (libFuzzer; the libraries with AddressSanitizer and
# UBSan too) and runs each for FUZZ_SECONDS on a scratch copy of its seed corpus
# fuzz/corpus/<name without _fuzzer>/, so the committed corpus does not grow; -max_len is twice the
# largest seed, at least 4096 bytes. New inputs and crash reproducers stay in $(FUZZ_DIR)/. Fails
# when any target finds a crash, a leak or a hang.
fuzz:
	@scripts/install-deps fuzz
	CXX=clang++ cmake -S . -B $(FUZZ_DIR) $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	      -DTARNEL_BUILD_FUZZ=ON -DTARNEL_SANITIZE=ON -DTARNEL_WERROR=$(WERROR) \
	      -DTARNEL_BUILD_TESTS=OFF -DTARNEL_BUILD_TOOLS=OFF -DTARNEL_BUILD_BENCH=OFF \
	      -DTARNEL_BUILD_EXAMPLES=OFF
	cmake --build $(FUZZ_DIR) -j $(JOBS)
	@failed=""; \
	for target in $(FUZZ_DIR)/fuzz/*_fuzzer; do \
	    [ -x "$$target" ] && [ -f "$$target" ] || continue; \
	    name=$$(basename "$$target"); seeds=fuzz/corpus/$${name%_fuzzer}; \
	    work=$(FUZZ_DIR)/corpus-work/$$name; artifacts=$(FUZZ_DIR)/artifacts/$$name; \
	    rm -rf "$$work"; mkdir -p "$$work" "$$artifacts"; \
	    [ -d "$$seeds" ] && cp -R "$$seeds/." "$$work/"; \
	    largest=$$(find "$$work" -type f -printf '%s\n' | sort -n | tail -1); \
	    maxlen=$$(( 2 * $${largest:-0} > 4096 ? 2 * $${largest:-0} : 4096 )); \
	    dict=""; [ -f fuzz/$${name%_fuzzer}.dict ] && dict=-dict=fuzz/$${name%_fuzzer}.dict; \
	    echo "fuzz: $$name for $(FUZZ_SECONDS) s, -max_len=$$maxlen"; \
	    ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	    "$$target" -max_total_time=$(FUZZ_SECONDS) -max_len=$$maxlen -timeout=10 \
	        -print_final_stats=1 -artifact_prefix="$$artifacts/" $$dict "$$work" \
	        || failed="$$failed $$name"; \
	done; \
	if [ -n "$$failed" ]; then echo "fuzz: failed:$$failed (see $(FUZZ_DIR)/artifacts/)"; exit 1; fi

bench: build
	@for b in $(BUILD_DIR)/bench/*; do [ -x "$$b" ] && [ -f "$$b" ] && "$$b" || true; done

install: build
	cmake --install $(BUILD_DIR)

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR)
