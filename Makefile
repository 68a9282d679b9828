# The two set-up commands of the README are `make demo` and `make test`; both install
# what is missing, configure, build and run. The other targets are for developers.
.PHONY: deps build demo test check asan tsan fuzz bench clean

FUZZ_SECONDS ?= 20

deps:
	scripts/install-deps

build: deps
	cmake --preset default
	cmake --build --preset default

demo: build
	scripts/with-display ./build/bin/ipg demo --out build/demo

# Everything CI runs: the normal build's tests, the sanitizer builds' tests, the fuzzers.
test: check asan tsan fuzz

check: build
	ctest --preset default

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
