# One entry for everything: thin rules over CMakePresets.json and tools/. `make` alone prints the list.
#
# PYTHON chooses the interpreter that the module is built for and that runs tests and demo. The system's own has the
# folder build/release; each other one gets a folder of its own, since CMake can't change interpreters in a folder.
SHELL := /bin/bash
.SHELLFLAGS := -euo pipefail -c
.DEFAULT_GOAL := help

PYTHON ?= /usr/bin/python3
system_python := $(filter /usr/bin/python3,$(PYTHON))
tag = $(or $(shell $(PYTHON) tools/interpreter.py tag),$(error PYTHON=$(PYTHON) cannot be used))
BUILD ?= $(if $(system_python),build/release,build/$(tag))
SECONDS ?= 60
FILTER ?= .
# a compiler of the binding files takes about 1 GB
JOBS ?= $(shell awk -v cores=$$(nproc) '/MemTotal/ { fit = int($$2 / 1500000); if (fit < 1) fit = 1; \
          print (fit < cores) ? fit : cores }' /proc/meminfo)

BENCH_FLAGS ?= --benchmark_min_time=0.2 --benchmark_repetitions=3 --benchmark_report_aggregates_only=true

.PHONY: help
help: ## this list
	@echo "make <target> [PYTHON=/path/to/python3.X] [JOBS=n]"
	@sed -n 's/^\([a-z -]*\):.*## \(.*\)/  \1\t\2/p' Makefile | expand -t 16

# ---- the two commands of the README

.PHONY: demo test
demo: vorna ## a virtual camera, a graph and a second process, on screen; RECORDING=file plays a recording
	@PYTHONPATH='$(abspath $(BUILD))/python'"$${PYTHONPATH:+:$$PYTHONPATH}" \
	  $(PYTHON) examples/demo.py $(if $(RECORDING),--recording '$(RECORDING)')

test: build ## every C++ and Python test; ends in one line that counts all
	tools/run-tests.py '$(BUILD)' --jobs $(JOBS)

# ---- the machine

.PHONY: install-udev
install-udev: ## as root: lets users open the boards on USB
	install -D -m 644 packaging/60-vorna.rules '$(DESTDIR)/etc/udev/rules.d/60-vorna.rules'
	$(if $(DESTDIR),,udevadm control --reload && udevadm trigger --subsystem-match=usb)

# ---- building

.PHONY: deps dev-deps configure build vorna module pythons
deps: ## installs the packages that are missing
	@tools/install-deps.sh

dev-deps: ## also clang's tools and gcovr
	@tools/install-deps.sh --dev

configure: deps
	cmake --preset release -B '$(BUILD)' -DVORNA_PYTHON=ON -DBUILD_TESTING=ON -DVORNA_BENCH=ON \
	  $(if $(system_python),,-DPython_EXECUTABLE="$$($(PYTHON) tools/interpreter.py executable)")

build: configure ## everything, in build/release
	cmake --build '$(BUILD)' --parallel $(JOBS)

vorna: configure
	cmake --build '$(BUILD)' --parallel $(JOBS) --target vorna

module: deps ## the module alone, for PYTHON, in BUILD; the last line is the folder for PYTHONPATH
	@tools/build-module.sh $(PYTHON) $(if $(filter file,$(origin BUILD)),,'$(BUILD)') --jobs $(JOBS)

pythons: deps ## builds and imports the module for every CPython 3.9 to 3.13 found on this machine
	@tools/build-pythons.sh $(JOBS)

# ---- looking for faults

.PHONY: asan tsan coverage fuzz
asan tsan: %: deps ## all tests under ASan and UBSan, or under TSan
	cmake --preset $@
	cmake --build --preset $@ --parallel $(JOBS)
	tools/run-tests.py build/$@ --preset $@ --jobs $(JOBS)

coverage: dev-deps ## all tests with gcov counters; the report is build/coverage/report.html
	cmake --preset $@
	cmake --build --preset $@ --parallel $(JOBS)
	find build/coverage -name '*.gcda' -delete
	tools/run-tests.py build/$@ --preset $@ --jobs $(JOBS)
	gcovr -r . --filter src/ build/coverage -s --html-details build/coverage/report.html | tail -4

fuzz: dev-deps ## each fuzzer for SECONDS=60; what it finds is written to build/fuzz/found
	cmake --preset fuzz
	cmake --build --preset fuzz --parallel $(JOBS) --target $(patsubst fuzz/%.cpp,%,$(wildcard fuzz/fuzz_*.cpp))
	tools/run-fuzzers.sh build/fuzz $(SECONDS)

# ---- speed

.PHONY: bench bench-compare
bench: configure ## the benchmarks whose name matches FILTER=regex, as ratios to the floor of the same run
	cmake --build '$(BUILD)' --parallel $(JOBS)
	tools/run-benchmarks.sh '$(BUILD)' '$(FILTER)' $(BENCH_FLAGS)
	cmake --build '$(BUILD)' --target bare
	$(PYTHON) bench/python/import_time.py '$(BUILD)/python' "$$(dirname "$$(find '$(BUILD)/bench' -name 'bare*.so')")"
	$(if $(system_python),$(PYTHON) bench/python/rpc.py '$(BUILD)/python' '$(BUILD)/bench/rpc_floor')
	$(if $(system_python),$(PYTHON) bench/python/arrays.py '$(BUILD)/python')

bench-compare: dev-deps ## builds BASE=commit beside this tree, runs the benchmarks of both in turn, prints the ratios
	$(if $(BASE),,$(error say what to compare with: make bench-compare BASE=main))
	tools/bench-compare.py '$(BASE)' --filter '$(FILTER)' --jobs $(JOBS) $(COMPARE_FLAGS)

# ---- form

.PHONY: format format-check tidy locks headers layers golden
format: dev-deps ## clang-format over the tree
	tools/format.sh

format-check: dev-deps ## says which files clang-format would change
	tools/format.sh --check

golden: build ## accepts what tests print today: rewrites tests/golden; read `git diff tests/golden` before you commit
	VORNA_GOLDEN=accept tools/run-tests.py '$(BUILD)' --jobs $(JOBS)
	/usr/bin/python3 fuzz/make-corpus.py
	git diff --stat tests/golden fuzz/corpus

locks: dev-deps configure ## clang's thread-safety analysis over src/, by the marks of src/util/Mutex.h
	tools/check-locks.py '$(BUILD)' --jobs $(JOBS)

tidy: locks ## clang-tidy over src/ and bench/, and the check of locks
	run-clang-tidy -quiet -p '$(BUILD)' -j $(JOBS) '^$(CURDIR)/(src|bench)/'

headers: configure ## compiles every public header alone
	cmake --build '$(BUILD)' --parallel $(JOBS) --target all_verify_interface_header_sets

layers: deps ## refuses an #include that the DEPS of its module don't allow
	/usr/bin/python3 tools/check-layers.py

.PHONY: clean
clean: ## removes build/
	rm -rf build
