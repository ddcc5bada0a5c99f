// A block called alone, on whole frames: what its public function does.
#ifndef CMODEL_BLOCK_ON_FRAMES_H
#define CMODEL_BLOCK_ON_FRAMES_H

#include <initializer_list>

#include "block.h"

namespace cm {

struct FrameInput {
    const FRAME* frame;
    int channel = 0;
};
struct FrameOutput {
    FRAME* frame;  // null: the output is not wanted, where the block looks for it
    int channel = 0;
};

// Runs a block, configured from ee_reg, over as many rows and columns as `size` has and `extra_rows` more;
// other frames are addressed by reflection. Then its records go to the log and, when dump_dbg_img is set, its
// images to dbg_path.
void run_on_frames(const Block& block, std::initializer_list<FrameInput> in,
                   std::initializer_list<FrameOutput> out, const FRAME& size, const char* tag = "",
                   int extra_rows = 0);

}  // namespace cm

#endif
