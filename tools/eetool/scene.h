// A drawn photograph that has what makes sharpening difficult.
#ifndef CMODEL_EETOOL_SCENE_H
#define CMODEL_EETOOL_SCENE_H

#include "common.h"

namespace eetool {

// Fills a three-channel YCbCr frame of 8 bits with panels of 160x120 pixels, four in a row and four rows,
// again and again:
//
//     dark text       light text    steps of contrast    thin slanted lines, not smoothed
//     skin            brow, lips    sky with noise       dusk with noise
//     dark weave      dark text     red and blue         green and violet
//     grass           fabric        soft large steps     rings
//
// As a lens would, it softens all but the lines; as a sensor, it adds noise. Every machine draws the same.
// Returns 0.
int draw_scene(FRAME* frame);

}  // namespace eetool

#endif
