/*
 * Texture detection and the pipeline that the program runs. This header compiles as C11 and as C++20.
 */
#ifndef CMODEL_PRE_EE_HW_H
#define CMODEL_PRE_EE_HW_H

#include "common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* MF and HF deltas (5x5 kernels) of a luma plane, in eighths of an 8-bit code for depth 8 and in
 * codes of a 12-bit plane for any other depth. `tag` prefixes the debug images' names. Size: in. */
CM_API void PRE_EE_CalcDelta(const FRAME* in, FRAME* mf, FRAME* hf, const char* tag);

/* Per pixel, picks and scales the input's or the fused luma's delta by brightness, edge energy and
 * line structure. `tag` prefixes the debug image's name. Size: Yin. */
CM_API void PRE_EE_FlatDet(const FRAME* Yin, const FRAME* Yfusion, const FRAME* delta_in,
                           const FRAME* delta_fusion, FRAME* out, const char* tag);

/* The pipeline: sharpens src_ynr by what it finds in Yin, the half-width chroma planes, the motion
 * map and (texture mode 1) Yfusion, which may be null in texture mode 0. Returns a new frame with
 * Yin's size and channels, depth 8, format 1 (debug views included), or a copy of Yin when the
 * block is disabled. Yin, src_ynr, mmap and, in texture mode 1, Yfusion must have one size;
 * otherwise a message names both planes and the program ends with status 255. */
CM_API FRAME* pre_ee_hw(const FRAME* Yin, const FRAME* Cb, const FRAME* Cr, const FRAME* src_ynr,
                        const FRAME* mmap, const FRAME* Yfusion);

#ifdef __cplusplus
}
#endif

#endif
