# The two commands of a fresh machine: `make demo` (the main job) and `make test`.
# Both install the Debian packages they need first. CMAKE_ARGS passes options to
# the configure step, e.g. `make test CMAKE_ARGS=-DORVANE_WERROR=ON`.

CMAKE_ARGS ?=
JOBS ?= 2
FUZZ_SECONDS ?= 60

.PHONY: deps demo test test-clang test-asan bench fuzz clean

deps:
	@scripts/install-deps.sh

demo: deps
	cmake --preset default $(CMAKE_ARGS)
	cmake --build --preset default -j $(JOBS) --target orvane
	./build/apps/orvane demo

test: deps
	cmake --preset default $(CMAKE_ARGS)
	cmake --build --preset default -j $(JOBS)
	ctest --preset default

test-clang: deps
	cmake --preset clang $(CMAKE_ARGS)
	cmake --build --preset clang -j $(JOBS)
	ctest --preset clang

test-asan: deps
	cmake --preset asan $(CMAKE_ARGS)
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan

bench: deps
	cmake --preset default $(CMAKE_ARGS)
	cmake --build --preset default -j $(JOBS)
	for program in build/bench/orvane-bench-*; do $$program || exit 1; done

# The libFuzzer targets of fuzz/ (clang, ASan + UBSan), each run FUZZ_SECONDS on a
# fresh copy of its seeds; fails on any finding.
fuzz: deps
	cmake --preset fuzz $(CMAKE_ARGS)
	cmake --build --preset fuzz -j $(JOBS)
	scripts/run-fuzzers.sh build-fuzz $(FUZZ_SECONDS)

clean:
	rm -rf build build-clang build-asan build-fuzz orvane-demo
