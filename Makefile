# Front door of the project. `make help` lists the targets.

BUILD_DIR  ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS       ?= $(shell nproc)
WERROR     ?= 0
FUZZ_SECONDS ?= 10
FUZZERS    := $(notdir $(wildcard fuzz/corpus/*))

FORMAT_FILES = find talvex tests tools bench fuzz \( -name '*.h' -o -name '*.cpp' \) 2>/dev/null

CMAKE_FLAGS = -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) \
              -DTALVEX_WARNINGS_AS_ERRORS=$(if $(filter 1,$(WERROR)),ON,OFF) \
              -DCMAKE_EXPORT_COMPILE_COMMANDS=ON

.PHONY: help deps configure build test demo bench sanitize arm-test fuzz format format-check lint clean

help: ## List the targets
	@grep -E '^[a-z-]+:.*## ' $(MAKEFILE_LIST) | awk -F':.*## ' '{printf "  %-14s %s\n", $$1, $$2}'

deps: ## Install the Debian packages the project needs (idempotent)
	@scripts/install-deps.sh

configure: deps ## Configure the build in $(BUILD_DIR)
	cmake -S . -B $(BUILD_DIR) $(CMAKE_FLAGS)

build: configure ## Build the library, tests and tools
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build ## Build and run every test (WERROR=1 makes warnings errors)
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

demo: configure ## Run the simulator's default scenario under the library, swap-interval pacing, the governor alone and neither
	cmake --build $(BUILD_DIR) -j $(JOBS) --target talvex-sim
	$(BUILD_DIR)/tools/sim/talvex-sim --compare --out out/default
	@echo "Open out/default/compare/compare.md; each policy's timeline, trace.json (Perfetto UI), chart and report are in its folder there"

bench: ## Run the benchmarks; JSON in out/bench/, the benchmarks page's table in out/bench/results.md
	@scripts/install-deps.sh tools
	bench/run.sh

sanitize: deps ## Every test under ASan+UBSan, the concurrency tests under TSan
	cmake -S . -B build-asan $(CMAKE_FLAGS) -DTALVEX_SANITIZERS="address;undefined"
	cmake --build build-asan -j $(JOBS)
	cd build-asan && ASAN_OPTIONS=halt_on_error=1:detect_leaks=1 \
		UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 ctest --output-on-failure -j $(JOBS)
	cmake -S . -B build-tsan $(CMAKE_FLAGS) -DTALVEX_SANITIZERS=thread
	cmake --build build-tsan -j $(JOBS)
	cd build-tsan && TSAN_OPTIONS=halt_on_error=1 ctest --output-on-failure -j $(JOBS) -R Concurren

arm-test: ## Cross-build for 32-bit ARM and run every test under qemu-arm
	@scripts/install-deps.sh arm
	cmake -S . -B build-arm $(CMAKE_FLAGS) \
		-DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm-linux-gnueabihf.cmake
	cmake --build build-arm -j $(JOBS)
	cd build-arm && ctest --output-on-failure -j $(JOBS)

fuzz: ## Run every fuzz target FUZZ_SECONDS seconds under libFuzzer with ASan+UBSan
	@scripts/install-deps.sh fuzz
	cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
		-DTALVEX_FUZZ=ON -DTALVEX_SANITIZERS="address;undefined" -DTALVEX_BUILD_TESTS=OFF
	cmake --build build-fuzz -j $(JOBS) --target $(addprefix talvex_fuzz_,$(FUZZERS))
	@for f in $(FUZZERS); do \
		mkdir -p out/fuzz/$$f && echo "== fuzz $$f ($(FUZZ_SECONDS) s)"; \
		build-fuzz/fuzz/talvex_fuzz_$$f out/fuzz/$$f fuzz/corpus/$$f \
			-max_total_time=$(FUZZ_SECONDS) -print_final_stats=1 > out/fuzz/$$f.log 2>&1; \
		status=$$?; grep -E '^(stat::number_of_executed_units|SUMMARY)|Done' out/fuzz/$$f.log; \
		if [ $$status -ne 0 ]; then tail -40 out/fuzz/$$f.log; exit 1; fi; \
	done

format: ## Format the tree with clang-format
	@$(FORMAT_FILES) | xargs -r clang-format -i

format-check: ## Fail when a file is not formatted
	@$(FORMAT_FILES) | xargs -r clang-format --dry-run --Werror

lint: configure ## clang-tidy (.clang-tidy) over the library, the harness and the tools; fails on any finding
	@scripts/install-deps.sh lint
	@echo "lint: clang-tidy over talvex/, harness/ and tools/ (log in $(BUILD_DIR)/lint.log)"
	@run-clang-tidy -p $(BUILD_DIR) -quiet -j $(JOBS) \
		'^$(CURDIR)/(talvex|harness|tools)/.*\.cpp$$' > $(BUILD_DIR)/lint.log 2>&1; \
		if grep -qE '(warning|error):' $(BUILD_DIR)/lint.log; then \
			grep -E '(warning|error):' -A3 $(BUILD_DIR)/lint.log; exit 1; fi
	@echo "lint: clean"

clean: ## Remove every build tree and the outputs
	rm -rf $(BUILD_DIR) build-asan build-tsan build-arm build-fuzz build-bench out
