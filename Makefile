# `make demo` and `make test` are all that a fresh machine needs.

.PHONY: all demo test deps release clean

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

clean:
	rm -rf build demo-out
