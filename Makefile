# The two commands of the README: `make run` and `make test`. Both set up a fresh
# Debian machine on their own (see scripts/install-deps.sh).

BUILD_DIR    := build
SANITIZE_DIR := build-sanitize
JOBS         ?= $(shell nproc 2>/dev/null || echo 2)
ARGS         ?=

.PHONY: all run test test-plain test-sanitize deps deps-test deb format clean soak

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

test: deps-test test-plain test-sanitize

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
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR)
