// Small pictures with labels, in rows on one sheet.
#ifndef CMODEL_EETOOL_CONTACT_SHEET_H
#define CMODEL_EETOOL_CONTACT_SHEET_H

#include <string>
#include <vector>

#include "pictures.h"

namespace eetool {

// Some of a picture.
pictures::Picture crop_of(const pictures::Picture& picture, int x, int y, int width, int height);
// As 8-bit RGB, every pixel `zoom` times as wide and high.
pictures::Picture as_rgb8(const pictures::Picture& picture, int zoom);

struct Cell {
    std::vector<std::string> labels;          // a line each
    std::vector<pictures::Picture> pictures;  // 8-bit RGB, side by side
};

// White paper; rows from the top, every cell of a column as wide as the widest, at least as wide as its
// labels.
pictures::Picture contact_sheet(const std::vector<std::vector<Cell>>& rows);

}  // namespace eetool

#endif
