// Frames from the inside.
#ifndef CMODEL_FRAME_INTERNAL_H
#define CMODEL_FRAME_INTERNAL_H

#include "common.h"

namespace cm {

// CM_NewFRAME(), not cleared on request: for frames of which every sample will be written.
FRAME* new_frame(uint32_t file_type, uint32_t format, uint32_t width, uint32_t height, uint32_t channels,
                 int depth, bool clear);

// Writes row[0 .. width-1] to one channel of row y; both coordinates are reflected against the
// frame, and of samples that meet in one place the last stays.
void write_row(FRAME& frame, int64_t y, const int32_t* row, int width, int channel = 0);

}  // namespace cm

#endif
