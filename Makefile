# Everything a developer runs. Each target makes ready what it needs first: Debian packages (as
# root or by sudo), a CPython, the virtual environment .venv and the built module.

SHELL := /bin/bash
.SHELLFLAGS := -eu -o pipefail -c
.DEFAULT_GOAL := help
.DELETE_ON_ERROR:

# An interpreter named by hand reaches the scripts: make PYTHON=/path/to/python3 ...
export PYTHON
# ccache needs this to reuse what was compiled with precompiled headers.
export CCACHE_SLOPPINESS ?= pch_defines,time_macros,include_file_mtime,include_file_ctime
# Pictures go to files; no display is wanted.
export MPLBACKEND := Agg

BIN := .venv/bin
SETUP_STAMP := .venv/.setup
BUILD_STAMP := .venv/.built
DOCS_STAMP := .venv/.docs
VALIDATION := build/validation
# The environment's cmake and ninja, before any older ones of the system.
TOOLS := PATH="$(CURDIR)/$(BIN):$$PATH"
JOBS := $(shell nproc 2>/dev/null || echo 2)

DEMO_OUT ?= demo
# Passed through: make test PYTEST_ARGS="-k kriging", make bench BENCH=variogram BENCH_ARGS="composites.csv",
# make validation TABLE="composites.csv".
PYTEST_ARGS ?=
CTEST_ARGS ?=
BENCH ?= kriging
# The CPythons to make wheels for, such as "3.10 3.13"; all that are supported when empty.
export WHEEL_PYTHONS ?=
BENCH_ARGS ?=
TABLE ?=

# Folders count as sources too: theirs is the time that changes when a file goes away.
MODULE_SOURCES := CMakeLists.txt pyproject.toml $(wildcard README.md LICENSE) \
	$(shell find src cmake python -type d -o -type f ! -name '.*')
CPP_FOLDERS := $(wildcard src tests benchmarks)
CPP_FILES = $(shell find $(CPP_FOLDERS) -name '*.cpp' -o -name '*.h')
TIDY_FILES = $(shell find src -name '*.cpp')

.PHONY: help setup build demo test test-native test-python format format-check lint tidy \
	sanitize sanitize-asan sanitize-tsan stubs docs bench validation wheels clean distclean FORCE

help: ## Say what each target does
	@grep -hE '^[a-z-]+:.*## ' $(MAKEFILE_LIST) | sed -E 's/:.*## /\t/' | \
		while IFS=$$'\t' read -r name what; do printf '  make %-14s %s\n' "$$name" "$$what"; done

setup: $(SETUP_STAMP) ## Install what is missing: Debian packages, .venv and its Python packages

# Looks every time, and leaves the stamp's time alone when there was nothing to do.
$(SETUP_STAMP): FORCE
	@scripts/setup.sh

build: $(BUILD_STAMP) ## Build the module and install it into .venv

# In the folder of the release preset, so that the native tests and the module share the core's
# objects. The build comes first and by itself, to be seen; pip then finds nothing left to compile.
$(BUILD_STAMP): build/release/build.ninja $(MODULE_SOURCES)
	$(TOOLS) cmake --build --preset release --target talvorix
	$(TOOLS) $(BIN)/python -m pip install --quiet --no-input --disable-pip-version-check \
		--no-build-isolation --no-deps --force-reinstall \
		--config-settings build-dir=build/release --config-settings build.targets=talvorix .
	@touch $@

demo: $(BUILD_STAMP) ## Estimate a small campaign of drillholes and draw it
	$(BIN)/python examples/estimate_drillholes.py --out $(DEMO_OUT)
	@echo "The picture: $$(find $(DEMO_OUT) -name '*.png' -printf '%p ')"

test: test-native test-python ## Run all tests, native and Python

test-native: $(BUILD_STAMP) ## Run the tests of the C++ core
	$(TOOLS) cmake --build --preset release
	$(TOOLS) ctest --preset release $(CTEST_ARGS)

test-python: $(BUILD_STAMP) ## Run the tests of the Python module
	$(BIN)/python -m pytest tests/python $(PYTEST_ARGS)

build/%/build.ninja: $(SETUP_STAMP) CMakePresets.json
	$(TOOLS) cmake --preset $* -DPython_EXECUTABLE="$(CURDIR)/$(BIN)/python"
	@touch $@

format: $(SETUP_STAMP) ## Format the C++ and Python sources
	$(BIN)/ruff check --fix-only --quiet .
	$(BIN)/ruff format .
	@$(BIN)/clang-format -i $(CPP_FILES)

format-check: $(SETUP_STAMP) ## Fail when a source is not formatted
	$(BIN)/ruff format --check .
	@echo "clang-format --dry-run"
	@$(BIN)/clang-format --dry-run -Werror $(CPP_FILES)

lint: format-check tidy ## Check formats, then ruff over Python and clang-tidy over the C++ core
	$(BIN)/ruff check .

tidy: build/tidy/build.ninja ## clang-tidy alone, over the files changed since it last ran
	@$(MAKE) --no-print-directory -s -k -j$(JOBS) --output-sync=target $(TIDY_FILES:%=build/tidy/%.ok)

# Of its own, without precompiled headers: g++'s are unreadable to clang-tidy. Configured anew when
# a file came or went, whose flags clang-tidy would otherwise have to guess.
build/tidy/build.ninja: $(SETUP_STAMP) CMakePresets.json CMakeLists.txt $(shell find src -type d)
	scripts/packages.sh tidy
	$(TOOLS) cmake --preset release -B build/tidy -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON \
		-DPython_EXECUTABLE="$(CURDIR)/$(BIN)/python"
	@touch $@

build/tidy/%.ok: % .clang-tidy $(filter %.h,$(MODULE_SOURCES))
	@echo "clang-tidy $<"
	@clang-tidy --quiet -p build/tidy $< 2>&1 | { grep -vE '^[0-9]+ warnings? generated' || true; }
	@mkdir -p $(@D) && touch $@

sanitize: sanitize-asan sanitize-tsan ## Run the tests under the sanitizers

sanitize-asan: build/asan/build.ninja ## The tests under the address and undefined-behaviour sanitizers
	$(TOOLS) scripts/sanitize.sh asan

sanitize-tsan: $(SETUP_STAMP) ## The parallel native tests under the thread sanitizer
	scripts/packages.sh sanitize
	@$(MAKE) --no-print-directory build/tsan/build.ninja
	$(TOOLS) scripts/sanitize.sh tsan

stubs: $(BUILD_STAMP) ## Write the type stubs anew from the built module
	$(BIN)/python tools/make_stubs.py

docs: $(BUILD_STAMP) $(DOCS_STAMP) ## Build the documentation site, which runs the examples
	$(BIN)/sphinx-build -W --keep-going -q -b html -d build/docs/doctrees docs build/docs/html
	@echo "The site: build/docs/html/index.html"

$(DOCS_STAMP): scripts/requirements-docs.txt $(SETUP_STAMP)
	@echo "installing the Python packages of $<"
	@$(BIN)/python -m pip install --quiet --no-input --disable-pip-version-check -r $< </dev/null || { \
		echo "docs: the site needs these packages in .venv, and pip could not install them:" >&2; \
		grep -v '^#' $< >&2; exit 1; }
	@touch $@

bench: $(BUILD_STAMP) ## Run a script of benchmarks/ (BENCH names it, BENCH_ARGS are passed on)
	$(BIN)/python benchmarks/$(BENCH).py $(BENCH_ARGS)

validation: $(BUILD_STAMP) $(VALIDATION)/.installed ## Do the same jobs with other packages and write the page's tables
	OPENBLAS_NUM_THREADS=1 $(VALIDATION)/bin/python validation/validate.py $(if $(TABLE),--table "$(TABLE)")

# An environment of their own, which takes the module and numpy from .venv: the packages bring many
# others that nothing else needs.
$(VALIDATION)/.installed: scripts/requirements-validation.txt $(SETUP_STAMP)
	$(BIN)/python -m venv $(VALIDATION)
	@$(BIN)/python -c 'import sysconfig; print(sysconfig.get_path("purelib"))' \
		>"$$($(VALIDATION)/bin/python -c 'import sysconfig; print(sysconfig.get_path("purelib"))')/main.pth"
	@echo "installing the Python packages of $<"
	@$(VALIDATION)/bin/python -m pip install --quiet --no-input --disable-pip-version-check -r $< </dev/null
	@touch $@

wheels: ## Make dist/: a source distribution and portable wheels, each tried in an empty environment
	scripts/make_wheels.sh

clean: ## Remove what was built, but not .venv
	rm -rf build dist $(DEMO_OUT) docs/reference docs/gallery docs/drawn .pytest_cache .mypy_cache .ruff_cache $(BUILD_STAMP)
	find src python tests examples tools benchmarks docs -name __pycache__ -prune -exec rm -rf {} + \
		2>/dev/null || true

distclean: clean ## Remove .venv as well
	rm -rf .venv
