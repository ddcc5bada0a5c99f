#!/bin/sh
# Compares the binary interface of libcmodel.so with the one that the last release had. What is new in it is listed;
# what is gone or changed is a failure, because programs that run with the release would not run with this.
#
#   check.sh check|store SOURCE_DIR BUILD_DIR
#
# `store` writes the interface down instead: once for each release. It is that of x86-64.
set -eu

what=$1 source=$2 build=$3
kept=$source/packaging/abi/libcmodel.so.1.abi

cmake -S "$source" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_FLAGS= -DCMAKE_CXX_FLAGS= \
    -DCMODEL_TOOLS=OFF >/dev/null
cmake --build "$build" --target cmodel_shared
# Of the types only those of the public headers count.
headers=$build/public_headers
rm -rf "$headers" && mkdir -p "$headers"
for header in log/log.h common/common.h ee/src/ee_hw.h ee/src/reg_parse/ee_reg.h pre_ee/src/pre_ee_hw.h \
    model/cmodel.h; do
    cp "$source/cmodel/$header" "$headers"
done
cp "$source/cmodel/ee/src/reg_parse/ee_reg_hw_def.inc" "$headers"

store() { # FILE
    abidw --exported-interfaces-only --drop-private-types --headers-dir "$headers" --no-show-locs --no-corpus-path \
        --no-comp-dir-path --out-file "$1" "$build/libcmodel.so"
}
case $what in
    store)
        store "$kept"
        ;;
    check)
        store "$build/libcmodel.abi"
        abidiff "$kept" "$build/libcmodel.abi" || true
        if ! abidiff --no-added-syms "$kept" "$build/libcmodel.abi" >/dev/null; then
            echo "programs that run with the last release would not run with this library:" \
                "undo it, or raise the major version" >&2
            exit 1
        fi
        echo "the binary interface is that of the last release, or more"
        ;;
    *)
        exit 2
        ;;
esac
