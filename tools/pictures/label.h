// Short texts in pictures: small letters, digits and signs of 5x7 pixels.
#ifndef CMODEL_LABEL_H
#define CMODEL_LABEL_H

#include "pictures.h"

namespace pictures {

constexpr int kLetterWidth = 6, kLetterHeight = 9;  // with the blank around

// Whether a letter covers the pixel at column 0 to 4 of row 0 to 6.
bool letter_covers(char letter, int column, int row);

// How wide a text is; it has one line.
int text_width(const std::string& text);

// Draws a text in black into an 8-bit RGB picture, its top left corner at (x, y); what lies outside is cut.
// Capitals are drawn as small letters, unknown characters as a box.
void draw_text(Picture& picture, int x, int y, const std::string& text);

}  // namespace pictures

#endif
