# The two commands of the README: `make run` and `make test`. Both set up a fresh
# Debian machine on their own (see scripts/install-deps.sh).

BUILD_DIR    := build
SANITIZE_DIR := build-sanitize
TSAN_DIR     := build-tsan
JOBS         ?= $(shell nproc 2>/dev/null || echo 2)
ARGS         ?=

.PHONY: all run test test-plain test-sanitize test-fuzz test-tsan fuzz soak deps deps-test deb format clean

all: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=Release
	cmake --build $(BUILD_DIR) -j $(JOBS) --target lumidrop

# A home folder inside the build tree; the sample folder is shared as "demo" the first time.
RUN_HOME := $(BUILD_DIR)/run-home
RUN_PORT ?= 8080

run: all
	@if [ -f $(RUN_HOME)/mount.ini ]; then \
	    ./$(BUILD_DIR)/lumidrop --home $(RUN_HOME) --port $(RUN_PORT) $(ARGS); \
	else \
	    ./$(BUILD_DIR)/lumidrop --home $(RUN_HOME) --port $(RUN_PORT) \
	        --mount demo=$(CURDIR)/res/demo $(ARGS); \
	fi

# The Release tests, the same under AddressSanitizer with UndefinedBehaviorSanitizer and under
# ThreadSanitizer, then the fuzzing harnesses. The ThreadSanitizer run itself, fault and soak
# tests included, takes about two and a half minutes on two cores; its build costs what the
# other sanitized build does.
test: deps-test test-plain test-sanitize test-tsan test-fuzz

test-plain:
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=Release -DLUMIDROP_BUILD_TESTS=ON
	cmake --build $(BUILD_DIR) -j $(JOBS)
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

test-sanitize:
	cmake -S . -B $(SANITIZE_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    -DLUMIDROP_BUILD_TESTS=ON -DLUMIDROP_SANITIZERS=address,undefined
	cmake --build $(SANITIZE_DIR) -j $(JOBS)
	cd $(SANITIZE_DIR) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	    ctest --output-on-failure -j $(JOBS)

# The libFuzzer harnesses (tests/fuzz), built by clang with AddressSanitizer and
# UndefinedBehaviorSanitizer. `make test` replays each one's seeds and looks for new inputs
# for TEST_FUZZ_SECONDS; `make fuzz` searches for FUZZ_SECONDS per harness.
FUZZ_DIR          := build-fuzz
FUZZ_SECONDS      ?= 300
TEST_FUZZ_SECONDS ?= 20

define fuzz_run
	cmake -S . -B $(FUZZ_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
	    -DLUMIDROP_FUZZ=ON -DLUMIDROP_FUZZ_SECONDS=$(1)
	cmake --build $(FUZZ_DIR) -j $(JOBS) --target fuzz_harnesses
	cd $(FUZZ_DIR) && ctest --output-on-failure -j $(JOBS) -L fuzz
endef

test-fuzz:
	$(call fuzz_run,$(TEST_FUZZ_SECONDS))

fuzz: deps-test
	$(call fuzz_run,$(FUZZ_SECONDS))

# The unit and end-to-end tests under ThreadSanitizer. Every process writes its reports
# to $(TSAN_DIR)/tsan-reports, the programs the end-to-end tests start among them (their
# standard error goes to files the tests delete), and any report fails the run. The
# browser, package and layering tests are left out: they add no threads of ours that the
# end-to-end tests do not already drive, and cost minutes each under the sanitizer.
TSAN_REPORTS := $(CURDIR)/$(TSAN_DIR)/tsan-reports
test-tsan: deps-test
	cmake -S . -B $(TSAN_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    -DLUMIDROP_BUILD_TESTS=ON -DLUMIDROP_SANITIZERS=thread
	cmake --build $(TSAN_DIR) -j $(JOBS)
	rm -rf $(TSAN_REPORTS) && mkdir -p $(TSAN_REPORTS)
	cd $(TSAN_DIR) && TSAN_OPTIONS="log_path=$(TSAN_REPORTS)/race second_deadlock_stack=1 \
	    suppressions=$(CURDIR)/tests/tsan.supp" \
	    ctest --output-on-failure -j $(JOBS) \
	        -E '^(Browser|TusClientTest|PackageTest|Layering\.|ManPageTest)'; \
	status=$$?; \
	if ls $(TSAN_REPORTS)/race.* >/dev/null 2>&1; then \
	    cat $(TSAN_REPORTS)/race.*; echo "ThreadSanitizer reported the races above" >&2; exit 1; \
	fi; \
	exit $$status

# A Debian package of the Release program: build/lumidrop_VERSION_ARCH.deb.
deb: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=Release
	cmake --build $(BUILD_DIR) -j $(JOBS) --target lumidrop lumidrop_man_page
	cd $(BUILD_DIR) && cpack -G DEB

# An hour of mixed load on the Release program (MINUTES=10 for a shorter one).
MINUTES ?= 60
soak: all
	bench/soak $(MINUTES) --binary $(BUILD_DIR)/lumidrop

deps:
	@scripts/install-deps.sh

deps-test:
	@scripts/install-deps.sh --tests

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h')

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR) $(FUZZ_DIR) $(TSAN_DIR)
