// The texture-detection blocks, each defined in the file named after it.
#ifndef CMODEL_PRE_EE_BLOCKS_H
#define CMODEL_PRE_EE_BLOCKS_H

#include "block.h"

namespace cm {

extern const Block kPreCalcDelta;
extern const Block kFlatDet;

// No planes, only a record of the texture mode.
extern const Block kTextureModeOn;
extern const Block kTextureModeOff;

// What flat detection took a pixel for.
enum Texture : int32_t { kDarkFlat = 0, kDarkEdge, kMidTone, kLine, kBrightEdge, kBrightFlat };

}  // namespace cm

#endif
