# The two set-up commands are `make run` and `make test`; each works on a fresh machine by itself.
# Every target builds through the CMake presets in CMakePresets.json.

ARGS ?=
# `make install PREFIX=$$HOME/.local` installs for one user; the default needs root.
PREFIX ?= /usr/local
# Compiles go through ccache; these let a fresh clone in another folder reuse the cache.
export CCACHE_BASEDIR := $(CURDIR)
export CCACHE_NOHASHDIR := 1
FORMAT_FILES = $(shell git ls-files '*.cpp' '*.h' '*.hpp')

# What the application needs to run, built alone by `make run`.
APP_TARGETS = pelma pelma-plugin-host pelma_lv2 pelma_catalog

.PHONY: deps deps-run build build-app run install package test test-asan test-tsan test-rtsan format format-check clean

deps:
	scripts/install-deps

deps-run:
	scripts/install-deps run

build: deps
	cmake --preset default -DPELMA_BUILD_EXTRAS=ON
	cmake --build --preset default

build-app: deps-run
	cmake --preset default -DPELMA_BUILD_EXTRAS=OFF
	cmake --build --preset default --target $(APP_TARGETS)

run: build-app
	./build/default/bin/pelma $(ARGS)

install: build-app
	cmake --install build/default --prefix $(PREFIX)

# A Debian package of the application (build/default/pelma_*.deb).
package: build-app
	cd build/default && cpack

test: build
	ctest --preset default

test-asan: deps
	cmake --preset asan
	cmake --build --preset asan
	ctest --preset asan

test-tsan: deps
	cmake --preset tsan
	cmake --build --preset tsan
	ctest --preset tsan

test-rtsan: deps
	cmake --preset rtsan
	cmake --build --preset rtsan
	ctest --preset rtsan

format:
	clang-format -i $(FORMAT_FILES)

format-check:
	clang-format --dry-run --Werror $(FORMAT_FILES)

clean:
	rm -rf build

.PHONY: bench
bench: build
	./build/default/bin/pelma_instrument_bench
