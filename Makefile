# Front door of the project. `make help` lists the targets.

BUILD_DIR  ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS       ?= $(shell nproc)
WERROR     ?= 0

FORMAT_FILES = find talvex tests tools bench fuzz \( -name '*.h' -o -name '*.cpp' \) 2>/dev/null

CMAKE_FLAGS = -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) \
              -DTALVEX_WARNINGS_AS_ERRORS=$(if $(filter 1,$(WERROR)),ON,OFF) \
              -DCMAKE_EXPORT_COMPILE_COMMANDS=ON

.PHONY: help deps configure build test sanitize arm-test format format-check clean

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

format: ## Format the tree with clang-format
	@$(FORMAT_FILES) | xargs -r clang-format -i

format-check: ## Fail when a file is not formatted
	@$(FORMAT_FILES) | xargs -r clang-format --dry-run --Werror

clean: ## Remove build outputs
	rm -rf $(BUILD_DIR) out
