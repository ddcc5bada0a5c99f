/*
 * Edge-enhancement blocks, the classic pipeline, and the pattern and noise generators.
 *
 * A block reads its registers from ee_reg and its input frames (channel 0 of each unless said
 * otherwise), and overwrites frames that the caller made. It runs over the frame named "size" in
 * its comment; every other frame is addressed by reflection, so frames of equal size are meant.
 * When dump_dbg_img is set, blocks with debug images write them to dbg_path.
 *
 * Units: deltas are signed eighths of a luma code, -2047..2047 (depth 11). Gains are 64 for 1.0
 * (depth 8), the total gain 256 for 1.0 (depth 12). This header compiles as C11 and as C++20.
 */
#ifndef CMODEL_EE_HW_H
#define CMODEL_EE_HW_H

#include "common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Half-width chroma to luma width: columns 2k and 2k+1 take input column k. Size: CbOut. */
CM_API void EE_DupCbCr(const FRAME* Cb, const FRAME* Cr, FRAME* CbOut, FRAME* CrOut);

/* Local maximum and minimum of luma over 5x5 (3x3). The minimum never exceeds 255 and the maximum
 * is never below 0. Size: in. */
CM_API void EE_Cal5x5MinMax(const FRAME* in, FRAME* max, FRAME* min);
CM_API void EE_Cal3x3MinMax(const FRAME* in, FRAME* max, FRAME* min);

/* Local range, max - min; a negative one is logged at ERROR and kept. Size: range. */
CM_API void EE_CalcDeltaRef(const FRAME* max, const FRAME* min, FRAME* range);

/* Reference levels: 3x3 low-pass luma, 5-tap horizontal low-pass Cb and Cr, into the three
 * channels of out. Cb and Cr at luma width. Size: Y. */
CM_API void EE_GenLPF3x3(const FRAME* Y, const FRAME* Cb, const FRAME* Cr, FRAME* out);

/* Coring level from brightness (Y or channel 0 of ref) and motion: the registers' level for a Y of 8 bits,
 * twice that for each bit more. A Y deeper than 12 bits is logged at ERROR. Size: Y. */
CM_API void EE_CalcCore(const FRAME* Y, const FRAME* ref, const FRAME* motion, FRAME* core);

/* Cores the MF and HF deltas and blends them into one. Size: out. */
CM_API void EE_Coring(const FRAME* mf, const FRAME* hf, const FRAME* core, FRAME* out);

/* Gain by local range. Size: range. */
CM_API void EE_CalcDeltaGain(const FRAME* range, FRAME* gain);

/* Gain by brightness (Y or channel 0 of ref). Size: Y. */
CM_API void EE_LumaAdptGainCal(const FRAME* Y, const FRAME* ref, FRAME* gain);

/* Gain by hue and chroma amplitude (Cb and Cr, or channels 1 and 2 of ref). Size: gain. */
CM_API void EE_ChromaGain(const FRAME* Cb, const FRAME* Cr, const FRAME* ref, FRAME* gain);

/* Gain by motion. Size: motion. */
CM_API void EE_MotionGain(const FRAME* motion, FRAME* gain);

/* Product of the four gains and the global strength, at most 4095. Size: total. */
CM_API void EE_TotalGain(const FRAME* delta, const FRAME* luma, const FRAME* chroma, const FRAME* motion,
                         FRAME* total);

/* Cored delta times total gain. Size: out. */
CM_API void EE_TotalDelta(const FRAME* delta, const FRAME* gain, FRAME* out);

/* Overshoot and undershoot control: the total delta limited against the local extremes of luma,
 * out in signed luma codes, -256..255. IOShootPro has the shoot mode and symmetric rounding of
 * the excess; IOShoot is the classic pipeline's. Size: delta. */
CM_API void EE_IOShootPro(const FRAME* delta, const FRAME* Y, const FRAME* max, const FRAME* min, FRAME* out);
CM_API void EE_IOShoot(const FRAME* delta, const FRAME* Y, const FRAME* max, const FRAME* min, FRAME* out);

/* src plus delta, clamped to out's depth and, when enabled, to soft bounds. Writes channel 0 of
 * out only. Size: out. */
CM_API void EE_SharpenMerge(const FRAME* delta, const FRAME* src, FRAME* out);

/* Classic pipeline only: cuts single-pixel spikes to the extremes of the eight neighbours; and MF
 * (7x7) and HF (5x5) deltas with a fixed shift of 6. Size: in. */
CM_API void EE_PreProcess(const FRAME* in, FRAME* out);
CM_API void EE_CalcDelta(const FRAME* in, FRAME* mf, FRAME* hf);

/* One intermediate value as an 8-bit debug view: value << shift (mod 32), >> 3, plus 128 if the
 * view is signed, clamped to 0..255. */
CM_API int EE_GenDbgOut(uint32_t value, int is_signed, int shift);

/* Extremes of a 3x3 window (9 values, row by row) without its centre. */
CM_API int SelMin(const int* window);
CM_API int SelMax(const int* window);

/* Hue of the vector (a, b), 0..255, 256 a turn, from +a towards +b: a 7-step fixed-point CORDIC. */
CM_API int CalcHue_Cordic(int a, int b);

/* Approximate sqrt(a*a + b*b): the larger of two linear forms. */
CM_API int CalcSQRT(int a, int b);

/* Classic pipeline: sharpens `image` by what it finds in Y (8-bit luma), Cb and Cr (half width)
 * and motion. Returns a new frame with Y's size and channels, depth 8, format 1; a copy of
 * `image` when the block is disabled. */
CM_API FRAME* ee_hw(const FRAME* Y, const FRAME* Cb, const FRAME* Cr, const FRAME* image,
                    const FRAME* motion);

/* Software hook on the converted RGB frame; does nothing. */
CM_API void ee_sw(FRAME* ycbcr);

/* Checkerboard of 64x64 blocks; star of 40 sectors in a disc (radius half the height less 100).
 * Fill a frame of at least 3 channels, chroma neutral. The result means nothing. */
CM_API int GenPattern0(FRAME* frame);
CM_API int GenPattern1(FRAME* frame);

/* Add noise to channel 0, clamped to the frame's depth: sparse spikes; Gaussian noise. Both draw
 * from rand(), whose seed is the caller's. The result means nothing. */
CM_API int AddSpikeNoise(FRAME* frame);
CM_API int AddYNoise(FRAME* frame, int mean, int sigma);

/* One normally distributed number (Box-Muller, two rand() calls unless the first gives 0). */
CM_API double AWGN_generator(double mean, double sigma);

#ifdef __cplusplus
}
#endif

#endif
