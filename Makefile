# The two set-up commands of the README are `make demo` and `make test`; both install
# what is missing, configure, build and run. The other targets are for developers.
.PHONY: deps build demo test check install-check docs package package-check tidy asan tsan fuzz bench clean

# How long each fuzz target runs in `make test`, from its seed corpus in fuzz/corpus;
# `make fuzz FUZZ_SECONDS=600` searches longer.
FUZZ_SECONDS ?= 8

deps:
	scripts/install-deps

build: deps
	cmake --preset default
	cmake --build --preset default

demo: build
	scripts/with-display ./build/bin/ipg demo --out build/demo

# Everything CI runs: the normal build's tests, the install tree used as a merchant would, the
# API documentation, the Debian packages, clang-tidy, the sanitizer builds' tests, the fuzzers;
# in two lanes side by side, ending with one line of each stage's wall time.
test: deps
	scripts/run-test-stages $(FUZZ_SECONDS)

check: build
	ctest --preset default

# Reuses build/: installs it into a temporary prefix and builds and runs programs against it.
install-check: build
	scripts/check-install build

# API documentation in build/docs/html; a warning fails the build.
docs: deps
	cmake --preset default >/dev/null
	QIPG_VERSION=$$(sed -n 's/^#define QIPG_VERSION_STRING "\(.*\)"$$/\1/p' build/generated/include/qipg/Version.h) \
	  doxygen Doxyfile

# Debian packages in build/packages.
package: build
	cd build && cpack

package-check: build
	scripts/check-packages build

tidy: build
	scripts/run-clang-tidy build

asan: deps
	cmake --preset asan
	cmake --build --preset asan
	ctest --preset asan

tsan: deps
	cmake --preset tsan
	cmake --build --preset tsan
	ctest --preset tsan

fuzz: deps
	cmake --preset asan
	cmake --build --preset asan
	scripts/run-fuzzers build-asan/bin $(FUZZ_SECONDS)

bench: build
	scripts/run-benchmarks build/bin

clean:
	rm -rf build build-asan build-tsan
