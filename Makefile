# The commands of this project. The rules of the build itself are CMake's: see CMakePresets.json.
# What is built goes into build/PRESET; nothing else in the tree is written but Web/node_modules, which the page's tests need.

JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
FUZZ_SECONDS ?= 10

.DEFAULT_GOAL := build
.PHONY: help deps build release deb page test test-full fuzz coverage mutants demo demo-linux bench lint format install clean

help: ## list these targets
	@sed -n 's/^\([a-z-]*\):[^#]*## /\1\t/p' $(firstword $(MAKEFILE_LIST)) | expand -t 12

deps: ## install the Debian packages that are missing, or print the line that does
	@Tools/deps

build: deps ## build for development (build/dev)
	cmake --preset dev
	cmake --build --preset dev -j$(JOBS)

release: deps ## build what is installed and measured (build/release)
	cmake --preset release
	cmake --build --preset release -j$(JOBS)

# The tests come last, so that the last lines are the summary of all tests. Some of them wait for real links, programs
# and browsers: there is one more at a time than there are jobs.
TEST_JOBS = $$(($(JOBS) + 1))

# Options of the release build that is tested, for builds that nobody keeps (.ci/run).
TEST_RELEASE ?=

test: deps ## build and run all tests but the long ones, under the sanitizers
	cmake --preset sanitizers
	cmake --build --preset sanitizers -j$(JOBS)
	cmake --preset release -DMAINT_KERNEL_TESTS=ON $(TEST_RELEASE)
	cmake --build --preset release -j$(JOBS)
	cmake --preset fuzz
	cmake --build --preset fuzz -j$(JOBS)
	Tools/smoke build/release
	Tools/run-tests --preset sanitizers -j$(TEST_JOBS)

test-full: deps ## the same with the long tests
	cmake --preset sanitizers
	cmake --build --preset sanitizers -j$(JOBS)
	cmake --preset release -DMAINT_KERNEL_TESTS=ON $(TEST_RELEASE)
	cmake --build --preset release -j$(JOBS)
	cmake --preset fuzz
	cmake --build --preset fuzz -j$(JOBS)
	Tools/smoke build/release
	Tools/run-tests --preset sanitizers-full -j$(TEST_JOBS)

fuzz: deps ## feed what comes from outside with what nobody has thought of, ten seconds each
	cmake --preset fuzz
	cmake --build --preset fuzz -j$(JOBS)
	Tools/fuzz --build build/fuzz --seconds $(FUZZ_SECONDS)

deb: release ## make the Debian packages (build/packages)
	Tools/deb build/release build/packages

page: deps ## bundle the page anew (Web/dist, which is committed)
	Web/install
	node Web/build.js

coverage: deps ## which lines and branches of the plug-in its tests reach
	@Tools/deps Tools/packages-coverage.txt
	cmake --preset coverage
	cmake --build --preset coverage -j$(JOBS)
	Tools/coverage --jobs $(JOBS) build/coverage

mutants: deps ## whether the plug-in's tests notice faults put into its code (under an hour)
	Tools/mutants --jobs $(JOBS)

demo: deps ## watch a unit drain on a simulated switch
	cmake --preset release
	cmake --build --preset release -j$(JOBS)
	Tools/demo build/release

demo-linux: deps ## watch a spine drain that carries traffic, with real links and routers (root)
	cmake --preset release
	cmake --build --preset release -j$(JOBS)
	Tools/demo-linux build/release

bench: deps ## measure, each figure beside its floor
	cmake --preset bench
	cmake --build --preset bench -j$(JOBS)
	Tools/bench build/bench

lint: deps ## formatting, includes, use of the outside world
	@Tools/lint

format: deps ## format every C++ file in place
	@Tools/check-format --fix

install: release ## install under PREFIX (DESTDIR is honoured)
	cmake --install build/release --prefix $(PREFIX)

clean: ## remove everything that was built
	rm -rf build Web/node_modules
