#!/bin/sh
# Installs the built library into a scratch prefix and uses it from there, as a project of its own would: through the
# CMake package (shared and static), through pkg-config (likewise), and from Python. PYTHON is `none` to leave that out.
#
#   installed_examples.sh BUILD_DIR EXAMPLES_DIR SCRATCH_DIR PYTHON
#
# Environment: CMAKE, CC, CXX, CFLAGS, CXXFLAGS.
set -eu

build=$1 examples=$2 scratch=$3 python=$4
rm -rf "$scratch"
mkdir -p "$scratch/run"
"$CMAKE" --install "$build" --prefix "$scratch/made" >/dev/null
mv "$scratch/made" "$scratch/prefix" # a tree that only works where it was installed fails below
prefix=$scratch/prefix
lib=$(dirname "$(find "$prefix" -name libcmodel.so)")

# The program of the page is the example.
sed -n '/^```c$/,/^```$/p;/^```$/q' "$examples/../docs/model.md" | sed '1d;$d' | diff - "$examples/sharpen.c"

"$CMAKE" -S "$examples" -B "$scratch/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
"$CMAKE" --build "$scratch/build" >/dev/null
export PKG_CONFIG_PATH="$lib/pkgconfig"
cc_sharpen() { # OUTPUT PKG_CONFIG_OPTION...
    output=$1 && shift
    # shellcheck disable=SC2046,SC2086  # lists of words
    "$CC" $CFLAGS -std=c11 "$examples/sharpen.c" $(pkg-config "$@" --cflags --libs cmodel) -Wl,-rpath,"$lib" \
        -o "$scratch/build/$output"
}
cc_sharpen sharpen_pkg_config
cc_sharpen sharpen_pkg_config_static --static
readelf -d "$scratch/build/sharpen_pkg_config" | grep -q libcmodel.so.1
! readelf -d "$scratch/build/sharpen_pkg_config_static" | grep libcmodel || exit 1

cd "$scratch/run"
for program in sharpen sharpen_static sharpen_pkg_config sharpen_pkg_config_static two_models two_models_static; do
    echo "== $program"
    "$scratch/build/$program"
done
if [ "$python" != none ]; then
    echo "== sharpen.py"
    "$python" "$examples/sharpen.py" "$lib/libcmodel.so.1"
    echo "== import cmodel"
    PYTHONPATH=$prefix/lib/python3/dist-packages CMODEL_LIBRARY=$lib/libcmodel.so.1 \
        "$python" -c 'import cmodel; print(cmodel.__file__, cmodel.version(), len(cmodel.registers()))'
fi
status=0
"$prefix/bin/pre_ee_main" >/dev/null 2>&1 || status=$?
[ "$status" -eq 255 ] || { echo "the installed pre_ee_main, without arguments, ended with $status" >&2; exit 1; }
