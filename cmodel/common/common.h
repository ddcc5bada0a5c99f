/*
 * Frame library: the FRAME record and everything that works on whole frames.
 *
 * A FRAME is a descriptor and one owned block of 32-bit samples, interleaved by channel. Where a
 * function reads or writes outside a frame, the coordinate is reflected at the border without
 * repeating the edge sample (-1 is 1, n is n-2), again and again until it is inside.
 *
 * Functions that return a FRAME return a new one, which the caller frees with CM_DelFRAME().
 * A frame that cannot be allocated ends the program with status 1 ("Unable to allocate memory").
 * All arithmetic on samples is 32-bit two's complement and wraps; shifts to the right are
 * arithmetic. This header compiles as C11 and as C++20.
 */
#ifndef CMODEL_COMMON_H
#define CMODEL_COMMON_H

#include <stdint.h>
#include <stdio.h>

#include "log.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Values of FRAME.format. */
enum { CM_FORMAT_RGB = 0, CM_FORMAT_YCBCR = 1, CM_FORMAT_SINGLE = 2, CM_FORMAT_RAW_RGB = 3 };

typedef struct FRAME {
    uint32_t file_type; /* what the reader was told; 3 is RAW */
    uint32_t format;    /* CM_FORMAT_... */
    uint32_t reserved;  /* 0 in a new frame; never read */
    uint32_t width;     /* pixels */
    uint32_t height;    /* rows */
    uint32_t channels;  /* samples per pixel */
    int32_t depth;      /* bits per sample */
    int32_t* data;      /* width * height * channels samples, owned; channel c of (x, y) is at
                           channels * (y * width + x) + c */
} FRAME;

/* Directory of the debug images, and whether blocks write them (non-zero: they do). Set before the
 * first block runs, only read afterwards. */
CM_API extern char dbg_path[1024];
CM_API extern int dump_dbg_img;

/* ---- Frames ------------------------------------------------------------------------------- */

/* A new frame with every sample 0. */
CM_API FRAME* CM_NewFRAME(uint32_t file_type, uint32_t format, uint32_t width, uint32_t height,
                          uint32_t channels, int depth);

/* Frees the samples and the record. A null frame, or one without samples, is left alone. */
CM_API void CM_DelFRAME(FRAME* frame);

/* A copy: descriptors and samples. */
CM_API FRAME* CM_CopyFRAME(const FRAME* src);

/* One channel of `src` as a single-plane frame (format 2). `channel` must exist. */
CM_API FRAME* CM_CopySingleCh(const FRAME* src, int channel);

/* Copies the samples of `src` into `dst` over src's width, height and channels; a dst of another
 * size is written at reflected coordinates. dst must have at least as many channels. */
CM_API void CM_CopyFrame(const FRAME* src, FRAME* dst);

/* Writes the first sample of each src pixel into dst channels 0, 1 and 2. A src with other than
 * one channel is logged at FATAL and copied all the same; a dst with other than three is logged
 * at FATAL and left alone. */
CM_API void CM_CopyFrame_1to3(const FRAME* src, FRAME* dst);

/* dst channel k of every dst pixel = the sample of single-channel frame ck. Returns dst. */
CM_API FRAME* CM_Merge3Ch(const FRAME* c0, const FRAME* c1, const FRAME* c2, FRAME* dst);

/* Sets every sample to `value`. Returns `frame`. */
CM_API FRAME* Frame_Set_Constant(FRAME* frame, int value);

/* A copy with every sample shifted right by n (arithmetic, n modulo 32) and the depth less n. */
CM_API FRAME* CM_Frame_Shift(const FRAME* src, int n);

/* The even (parity 0) or odd (any other parity) rows as a frame of half the height, rounded
 * down. Its file_type is `parity`. */
CM_API FRAME* CM_GetField(const FRAME* src, int parity);

/* Writes row y of `field` to the even or odd row 2y or 2y+1 of dst, for y below dst height / 2. */
CM_API void CM_SetField(FRAME* dst, const FRAME* field, int parity);

/* ---- Image files -------------------------------------------------------------------------- *
 * Binary PPM (P6) and PGM (P5), one to four big-endian bytes a sample by depth =
 * ceil(log2(max value)); depth 0 has no bytes. All files are opened through CM_Fopen(). A bad
 * header or a read error ends the program with status 1 and a message that names the path; a
 * payload that ends early gives samples made of end-of-file bytes (-1 each) and one ERROR record. */

/* Opens a file and takes an exclusive advisory lock on it. Never null: while the file cannot be
 * opened it says so once on standard output ("wait pre frame ready PATH") and tries again every
 * 10 ms. A want of memory or of descriptors in this process, which waiting does not end, ends the
 * program with status 1 and a message. A file that is no longer the one of that name when the lock
 * is had is opened anew. Modes that truncate do so only once the lock is held, and what they create
 * is locked before it can be found under its name (where the file system has unnamed files). */
CM_API FILE* CM_Fopen(const char* path, const char* mode);

/* Releases the lock and closes. Returns 0, or EOF when pending data could not be written. */
CM_API int CM_Fclose(FILE* stream);

/* CM_Fclose() unless `stream` is null. */
CM_API void CM_DelFILE(FILE* stream);

/* Reads P6 into a frame of 3 channels and format 0; samples are masked with the max value. */
CM_API FRAME* CM_ReadPPM(const char* path, uint32_t file_type);

/* Reads P5 into a frame of 1 channel and format 2. */
CM_API FRAME* CM_ReadPPM5(const char* path, uint32_t file_type);

/* Reads P5 into channel 0 of a frame of the caller's, which must be at least as large as the
 * file's; its descriptors stay as they are. Returns 0, or -1 after a message on standard error
 * for a file that is no good or does not fit. */
CM_API int CM_ReadPPM5_safe(const char* path, FRAME* frame);

/* Write channel 0 as P5, or three channels as P6 (a frame of other than 3 channels is grey: its
 * channel 0 three times). Bits above the frame's depth rounded up to whole bytes are dropped. A
 * failing write ends the program with status 1 and a message, and leaves an empty file. */
CM_API void CM_WritePPM5(const char* path, const FRAME* frame);
CM_API void CM_WritePPM(const char* path, const FRAME* frame);

/* The same at `target_depth` bits (1..32), samples clipped to 0..2^target_depth - 1 (to 0 for a
 * depth of 32, whose max value wraps). Another depth ends the program with status 1 after the
 * first three header lines. */
CM_API void CM_WritePPM5_CLIP(const char* path, const FRAME* frame, int target_depth);
CM_API void CM_WritePPM_CLIP(const char* path, const FRAME* frame, int target_depth);

/* ---- Colour conversion -------------------------------------------------------------------- *
 * Forward: BT.601 luma weights in 1/256, full range, integer and depth-aware. Inverse: single
 * precision, always 8-bit. A frame of the wrong format ends the program with status 255. */

/* RGB (format 0) to a new YCbCr frame (format 1), results clamped to the depth's range. */
CM_API FRAME* CM_RGB2YCbCr(const FRAME* src);

/* The same into `dst` (format 1, the same size), without clamping. Returns dst. */
CM_API FRAME* CM_RGB2YCbCr_safe(const FRAME* src, FRAME* dst);

/* YCbCr (format 1) to a new RGB frame (format 0), results clamped to 0..255 whatever the depth. */
CM_API FRAME* CM_YCbCr2RGB(const FRAME* src);

/* The same into `dst`, whose format is not checked. */
CM_API void CM_YCbCr2RGB_safe(const FRAME* src, FRAME* dst);

/* ---- Curves, interpolation, blends -------------------------------------------------------- *
 * Pure integer functions with the hardware's rounding. Products wrap at 32 bits before the shift;
 * powers of two and shift counts take their exponent modulo 32. */

/* Piecewise-linear curve of n knots (in, out: n entries; slope: n - 1, in 1/2^shift): out[0] up to
 * in[0], out[n-1] above in[n-1], else from the knot below x along its slope, clamped to the
 * segment's two outputs. */
CM_API int CM_LUT(int x, const int* in, const int* out, const int* slope, int n, int shift);

/* y0 up to x0, then along the slope (rounded to nearest) until y1. */
CM_API int CM_LUT3(int x, int x0, int y0, int y1, int slope, int shift);

/* CM_LUT3 truncating instead of rounding. */
CM_API int CM_LUT3_CLIP(int x, int x0, int y0, int y1, int slope, int shift);

/* CM_LUT3 except that a shift of 0 adds a rounding constant of 2^31. */
CM_API int CM_interp1(int x, int x0, int y0, int y1, int slope, int shift);

/* Linear between (x0, y0) and (x1, y1), truncating toward zero; the nearer end's y outside. */
CM_API int CM_SingleIntp(int x0, int x1, int y0, int y1, int x);

/* CM_SingleIntp over n points; 0 for n < 1 or when no pair brackets x. */
CM_API int CM_MultiIntp(const int* xs, const int* ys, int n, int x);

/* Table of 2^lut_bits + 1 entries over inputs of in_bits bits, linear in between, rounded. */
CM_API int CM_LutBilinearInterp(const int* lut, int x, int in_bits, int lut_bits);

/* ((y1 - y0) << shift) / max(x1 - x0, 1), truncating toward zero. */
CM_API int cm_sw_get_slope(int x0, int x1, int y0, int y1, int shift);

/* Blends of a (weight w out of 2^s) and b: to nearest; truncated, one more when a exceeds b;
 * truncated or, when a exceeds b, rounded up; symmetric about the centre 2^(d-1). */
CM_API int CM_BlendR(int a, int b, int w, int s);
CM_API int CM_BlendIIR(int a, int b, int w, int s);
CM_API int CM_BlendIIR_R(int a, int b, int w, int s);
CM_API int CM_BlendIIR_C(int a, int b, int w, int s, int d);

/* ---- Chroma resampling -------------------------------------------------------------------- *
 * Between an interleaved 4:4:4 frame and caller-made planes. Down: even columns (and rows) are
 * picked. Up: averages of two or four, half steps away from the luma depth's mid-point. All
 * return 0. */
CM_API int CM_YCbCr444to422(const FRAME* src, FRAME* Y, FRAME* Cb, FRAME* Cr);
CM_API int CM_YCbCr444to420(const FRAME* src, FRAME* Y, FRAME* Cb, FRAME* Cr);
CM_API int CM_YCbCr422to444(const FRAME* Y, const FRAME* Cb, const FRAME* Cr, FRAME* dst);
CM_API int CM_YCbCr420to444(const FRAME* Y, const FRAME* Cb, const FRAME* Cr, FRAME* dst);

/* ---- Side files --------------------------------------------------------------------------- */

/* 16-bit little-endian RAW plane number k of a file, as a frame of file type 3. Rows are
 * 2 * width bytes; layout 0 has two planes a line, any other three, and 2 starts one plane on. */
CM_API FRAME* CM_ReadRAW(const char* path, uint32_t format, int k, int layout, uint32_t width,
                         uint32_t height, int depth);

/* Channel 0, low 16 bits, little-endian. A format other than 3 ends the program with status 1. */
CM_API void CM_WriteRAW(const char* path, const FRAME* frame);

/* Channel 0 (or channel c) as hexadecimal text, a row a line. */
CM_API void CM_WriteTXT(const char* path, const FRAME* frame);
CM_API void CM_WriteTXT_channel(const char* path, const FRAME* frame, int c);

typedef struct HIST {
    uint32_t bins;
    uint32_t second; /* kept as given */
    uint32_t channels;
    uint32_t* data; /* bins * channels counters, owned; bin b of channel c is at b * channels + c */
} HIST;

/* A histogram with every counter 0; the caller frees it with CM_DelHIST(). No memory: status 1. */
CM_API HIST* CM_NewHIST(uint32_t bins, uint32_t second, uint32_t channels);
CM_API void CM_DelHIST(HIST* hist);

/* One text file per channel, `base` with "_R", "_G", "_B", "_V", "_Y", "_IR" and then "_". */
CM_API void CM_WriteHIST(const char* base, const HIST* hist);

/* A new string a followed by b, which the caller frees; null when there is no memory. */
CM_API char* CM_StringConcat(const char* a, const char* b);

/* Prints channel c at x-1, x and x+1 of row y to standard output. */
CM_API void print_point_data_log(int x, int y, const FRAME* frame, int c, const char* name);

#ifdef __cplusplus
}
#endif

#endif
