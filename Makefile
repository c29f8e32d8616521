# Entry points for developers and CI; each target bootstraps the machine first when packages are missing.
SHELL := /bin/bash
JOBS ?= 2
FUZZ_SECONDS ?= 30
QVDOVRIN := build/linux/tools/qvdovrin/qvdovrin

.PHONY: bootstrap build run test test-asan test-tsan coverage bench fuzz format format-check tidy lint clean ios package repo

bootstrap:
	@scripts/bootstrap.sh

build: bootstrap
	cmake --preset linux
	cmake --build --preset linux -j $(JOBS)

run: build
	$(QVDOVRIN) serve --listen 127.0.0.1:8080

test: build
	ctest --preset linux

test-asan: bootstrap
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan

test-tsan: bootstrap
	cmake --preset tsan
	cmake --build --preset tsan -j $(JOBS)
	ctest --preset tsan

# Line coverage of src/ and server/ by the test suite.
coverage: bootstrap
	cmake --preset coverage
	cmake --build --preset coverage -j $(JOBS)
	scripts/coverage.sh build/coverage

bench: build
	scripts/run-benchmarks.sh build/linux/bench

fuzz: bootstrap
	cmake --preset fuzz
	cmake --build --preset fuzz -j $(JOBS)
	scripts/run-fuzzers.sh build/fuzz/tests/fuzz $(FUZZ_SECONDS)

# Where the phone library sends its requests, from make variables or the environment
# (make package QV_API_BASE_URL=https://…/); an unset one takes the built-in default, which a package refuses while it
# is loopback unless QV_ALLOW_LOOPBACK=1.
PHONE_ADDRESSES = $(if $(QV_API_BASE_URL),-DQV_API_BASE_URL='$(QV_API_BASE_URL)',-UQV_API_BASE_URL) \
	$(if $(QV_PHONE_LOOKUP_URL),-DQV_PHONE_LOOKUP_URL='$(QV_PHONE_LOOKUP_URL)',-UQV_PHONE_LOOKUP_URL) \
	-DQV_ALLOW_LOOPBACK=$(if $(filter 1,$(QV_ALLOW_LOOPBACK)),ON,OFF)

# The phone library (rootful and rootless fat arm64 + arm64e dylibs) cross-built against the iOS SDK; see README
# "The phone library". ARCHS=arm64 builds the arm64 slice only, which needs no arm64e linker.
ARCHS ?= arm64 arm64e
comma := ,
empty :=
space := $(empty) $(empty)
DEVICE_ARCHS = $(subst $(space),;,$(strip $(subst $(comma), ,$(subst ;, ,$(ARCHS)))))
# What the phone build lacks, in one line; it stops the build before CMake says it at length.
device_toolchain_missing = $(shell scripts/device-toolchain.sh '$(DEVICE_ARCHS)')

ios: bootstrap
	$(if $(device_toolchain_missing),$(error make $@: $(device_toolchain_missing)))
	cmake --preset ios '-DCMAKE_OSX_ARCHITECTURES=$(DEVICE_ARCHS)' $(PHONE_ADDRESSES)
	cmake --build --preset ios -j $(JOBS)

# Both .deb packages in build/packages, then scripts/check-packages.sh inspects them.
package: bootstrap
	$(if $(device_toolchain_missing),$(error make $@: $(device_toolchain_missing)))
	cmake --preset package '-DCMAKE_OSX_ARCHITECTURES=$(DEVICE_ARCHS)' $(PHONE_ADDRESSES)
	cmake --build --preset package -j $(JOBS)

# The package source in build/repo from the packages make package built; `qvdovrin serve --repo build/repo` serves it
# under /repo/. With QV_API_BASE_URL the packages' depiction and icon point at that service.
repo: bootstrap
	scripts/make-repo.py build/packages build/repo $(if $(QV_API_BASE_URL),--base-url '$(QV_API_BASE_URL)repo/')

format:
	scripts/check-format.sh --fix

format-check: bootstrap
	scripts/check-format.sh

tidy: build
	scripts/run-tidy.sh build/linux

lint: format-check tidy

clean:
	rm -rf build
