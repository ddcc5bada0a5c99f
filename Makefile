# `make demo` and `make test` are all that a fresh machine needs. For programs of your own: docs/model.md.

.PHONY: all demo check test lint test-long test-cluster test-cross test-cross-short deb test-deb abi \
    page test-page bench fuzz mutate deps page-deps release clean docs-pictures

all: release

deps:
	@tools/install_packages.sh packages.txt

release: deps
	cmake --preset release
	cmake --build --preset release

# A sample frame through the program, debug images on; everything is left in demo-out/.
demo: deps
	cmake --preset release
	cmake --build --preset release --target make_sample pre_ee_main
	tools/demo.sh build/release demo-out

# Library and program alone, with their own tests.
check:
	@tools/install_packages.sh packages-core.txt
	cmake --preset core
	cmake --build --preset core
	ctest --preset core

# The pictures and tables of docs/tuning.md, by the commands that it shows.
docs-pictures: release
	tools/docs_pictures.py build/release/eetool docs/tuning.md

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

# Lint of the tools, which takes minutes; that of the model is among the tests.
lint: release
	ctest --preset release -C Long -L lint

# What takes more than two minutes: all steps of the fault tests, 20,000 runs against the plain model.
test-long: release
	ctest --preset release -C Long -L long

# Debian packages in build/deb: built twice and compared, looked at by lintian. The packages are those of the commit
# that is checked out.
deb:
	@tools/install_packages.sh packages-deb.txt
	packaging/deb.sh build/deb

# Installed, used and removed in a clean root, which is made in ROOT; upgraded from the packages in BEFORE, if it is
# named.
ROOT ?= /var/tmp/cmodel-root
test-deb:
	@tools/install_packages.sh packages-deb.txt
	packaging/test_root.sh build/deb $(ROOT) $(BEFORE)

# Other processors: the tests built for arm64 and s390x, run in an emulator, and runs compared file by file with those
# of this machine.
test-cross: deps
	@tools/install_packages.sh packages-cross.txt
	tests/cross.sh $(CROSS)

# The same with the big-endian one alone, a few cases.
test-cross-short: deps
	@tools/install_packages.sh packages-cross.txt
	tests/cross.sh --short s390x

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
