// A photograph as the block sees it, and the block's result back in the photograph.
//
// The block sharpens luma of 8 bits. Luma and chroma are those of RGB input (BT.601 weights, full range),
// rounded once from the picture's own samples to 8 bits; a picture of 8 bits and the same picture scaled to
// 16 have the same planes. Chroma is that of every second column, as RGB input of the model object. Alpha has
// no part in it.
//
// What the block did to a pixel is a difference of luma. It is added to each colour of the photograph in the
// photograph's own depth, and cut to its range: a grey step stays grey, a difference of 0 leaves the pixel as
// it is.
#ifndef CMODEL_PHOTO_PLANES_H
#define CMODEL_PHOTO_PLANES_H

#include "pictures.h"

namespace pictures {

struct PhotoPlanes {
    int width = 0, height = 0;
    int chroma_width = 0;  // half, rounded up
    Memory y, cb, cr;      // 8 bits, rows without gaps
};

// `name` stands in messages. Throws Error.
PhotoPlanes planes_of(const Picture& picture, const std::string& name);

// Luma in the picture's own depth, the number of bits that its maximum takes; samples in a byte each, or in
// two in the machine's order, by sample_bytes() of the result, which is grey.
Picture luma_of(const Picture& picture, const std::string& name);

// Adds after - before, 8-bit luma of the picture's size, to its colours: scaled to the picture's maximum and
// rounded, halves away from 0.
void change_luma(Picture& picture, const uint8_t* before, const uint8_t* after);

// A copy, profile and all.
Picture copy_of(const Picture& picture, const std::string& name);

// Replaces its colours by grey: 8-bit samples of the picture's size, scaled to its maximum and rounded.
void set_grey(Picture& picture, const uint8_t* grey);

// Both, of one shape, side by side with a dividing line of kDivider columns between them, which is dark,
// light, dark.
constexpr int kDivider = 6;
Picture side_by_side(const Picture& before, const Picture& after, const std::string& name);

}  // namespace pictures

#endif
