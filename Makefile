# `make demo` and `make test` are all that a fresh machine needs. For programs of your own: docs/model.md.

.PHONY: all demo test test-cluster test-long abi page test-page bench fuzz mutate deps page-deps release clean

all: release

deps:
	@tools/install_packages.sh packages.txt

release: deps
	cmake --preset release
	cmake --build --preset release

# A sample frame through the program, debug images on; everything is left in demo-out/.
demo: release
	tools/demo.sh build/release demo-out

# All tests twice: as released, and under the address and undefined-behaviour sanitizers.
test: deps
	cmake --workflow --preset check
	cmake --preset asan
	cmake --build --preset asan
	ctest --preset asan

# The recipes of examples/cluster, each with a task killed and started again; needs root.
test-cluster: release
	@tools/install_packages.sh packages-cluster.txt
	tests/cluster_test.py build/release/eetool

# What takes more than two minutes: all steps of the fault tests, 20,000 runs against the plain model.
test-long: release
	ctest --preset release -C Long -L long

# The library's binary interface beside that of the last release.
abi: deps
	@tools/install_packages.sh packages-abi.txt
	packaging/abi/check.sh check . build/abi

# The tuning page, one file: build/page/tuning.html (docs/page.md).
page-deps: deps
	@tools/install_packages.sh packages-page.txt

page: page-deps
	page/build.sh

# Its model under Node.js against the program, and the page in Chromium.
test-page: page release
	page/test.sh

# The tables of docs/performance.md, and the time of each block. PHOTO=picture.ppm measures a photograph
# (8-bit P6); without it a synthetic picture serves.
bench: deps
	@tools/install_packages.sh packages-bench.txt
	cmake --preset bench
	cmake --build --preset bench
	bench/table.py build/bench $(if $(PHOTO),--photo $(PHOTO))
	build/bench/bench/blocks_bench --benchmark_counters_tabular=true

# Each fuzz target for FUZZ_SECONDS.
FUZZ_SECONDS ?= 60
fuzz: deps
	@tools/install_packages.sh packages-fuzz.txt
	fuzz/fuzz.sh $(FUZZ_SECONDS)

# Breaks the model in MUTANTS places, one at a time, and lists the changes that no test notices.
MUTANTS ?= 300
MUTANT_SEED ?= 1
mutate: deps
	nice tests/mutate.py --count $(MUTANTS) --seed $(MUTANT_SEED)

clean:
	rm -rf build demo-out page/node_modules
