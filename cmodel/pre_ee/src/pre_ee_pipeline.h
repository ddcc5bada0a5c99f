// The program's pipeline on planes of any origin.
#ifndef CMODEL_PRE_EE_PIPELINE_H
#define CMODEL_PRE_EE_PIPELINE_H

#include "ee_pipeline.h"

namespace cm {

// Whether the block is switched on; a disabled block's output is a copy of the luma.
bool block_enabled();

// Ends the program with a message when planes do not fit together; called before any output is opened.
void check_pre_ee_planes(const EePlanes& planes);

// Runs an enabled block over checked planes: rows into the sink, then records and debug images.
void run_pre_ee(const EePlanes& planes, RowSink& sink);

}  // namespace cm

#endif
