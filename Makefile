# Front door of the project. `make help` lists the targets.

BUILD_DIR  ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS       ?= $(shell nproc)
WERROR     ?= 0

FORMAT_FILES = find talvex tests tools bench fuzz \( -name '*.h' -o -name '*.cpp' \) 2>/dev/null

CMAKE_FLAGS = -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) \
              -DTALVEX_WARNINGS_AS_ERRORS=$(if $(filter 1,$(WERROR)),ON,OFF) \
              -DCMAKE_EXPORT_COMPILE_COMMANDS=ON

.PHONY: help deps configure build test format format-check clean

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

format: ## Format the tree with clang-format
	@$(FORMAT_FILES) | xargs -r clang-format -i

format-check: ## Fail when a file is not formatted
	@$(FORMAT_FILES) | xargs -r clang-format --dry-run --Werror

clean: ## Remove build outputs
	rm -rf $(BUILD_DIR) out
