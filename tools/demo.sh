#!/bin/sh
# Makes a sample frame, sharpens it with debug images on, and says what came of it.
#
#   demo.sh BUILD_DIR OUT_DIR
set -eu

build=${1:?usage: demo.sh BUILD_DIR OUT_DIR}
out=${2:?usage: demo.sh BUILD_DIR OUT_DIR}
in=$out/input
debug=$out/debug
rm -rf "$out"
mkdir -p "$in" "$debug"

# Six planes and an INI file with every register at its default.
"$build/make_sample" "$in" "$in/default.ini"

# Registers that make the sharpening visible: more gain and coring than the defaults, less room for
# over- and undershoot, and every brightness class of texture detection in use.
tune() { sed -i "s/^$1 = .*/$1 = $2/" "$in/tuned.ini"; }
cp "$in/default.ini" "$in/tuned.ini"
tune reg_ee_total_gain 64
tune reg_ee_total_coring 24
tune reg_ee_total_oshtthrd 12
tune reg_ee_total_ushtthrd 12
tune reg_ee_dark_luma_thr 1200
tune reg_ee_bright_luma_thr 2400
tune reg_ee_dark_edge_thr 40
tune reg_ee_dark_edge_strength 1024
tune reg_ee_bright_edge_thr 40
tune reg_ee_bright_edge_strength 1400
tune reg_ee_line_thr 600
tune reg_ee_line_strength 1600

# The instance is 0, so the registers are read from section [ee0].
"$build/pre_ee_main" "$in/tuned.ini" "$out/run.log" 1 0 1 "$debug" 1 \
    "$in/y.pgm" "$in/cb.pgm" "$in/cr.pgm" "$in/src_ynr.pgm" "$in/mmap.pgm" "$out/sharpened.pgm" \
    "$in/yfusion.pgm"

# The samples are the last bytes of a file; headers differ in length.
samples() { tail -c $((640 * 480)) "$1"; }
samples "$in/src_ynr.pgm" >"$out/before"
changed=$(samples "$out/sharpened.pgm" | cmp -l "$out/before" - | wc -l)
rm "$out/before"
[ "$changed" -gt 0 ] || { echo "the output is the same as the input" >&2; exit 1; }
cat <<EOF

input         $in (y, cb, cr, src_ynr, mmap, yfusion; registers: tuned.ini)
output        $out/sharpened.pgm
debug images  $debug ($(ls "$debug" | wc -l) files)
log           $out/run.log
$changed samples of the luma were changed by the sharpening.
EOF
