// A whole frame as the fixed functions and the program run it: registers from ee_reg, records to the logger,
// debug images to dbg_path, failures to standard error and the exit status.
#ifndef CMODEL_FIXED_RUN_H
#define CMODEL_FIXED_RUN_H

#include "row_pipeline.h"

namespace cm {

// Whether the block is switched on; a disabled block's output is a copy of its input.
inline bool block_enabled() {
    return reg_value(reg_ee_enable) == 1;
}

using InputPlanes = const RowSource* [kInputs];  // null: there is none

// Ends the program unless a plane has the luma's size; the message names both.
void require_luma_size(const RowSource& luma, const RowSource& plane, const char* name,
                       const LogPosition& at);

// The same for all planes of pre_ee_hw, and for a fused luma that texture mode 1 lacks. To be called before
// any output is opened.
void check_pre_ee_planes(const InputPlanes& planes);

// Runs an enabled pipeline over checked planes: rows into the sink, then records and images.
void run_fixed(const PipelineRow& pipeline, const InputPlanes& planes, RowSink& sink);

// The output frame of both pipelines: luma's size and channels, format YCbCr, depth 8.
FRAME* new_output_frame(const FRAME& luma);

// Whether channel 0 of the output is a debug view.
bool shows_debug_view();

// Channels 1 and 2 of a debug view are neutral chroma.
void set_neutral_chroma(FRAME& out);

}  // namespace cm

#endif
