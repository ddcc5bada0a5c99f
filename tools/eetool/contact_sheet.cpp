#include "contact_sheet.h"

#include <algorithm>
#include <cstring>

#include "label.h"

namespace eetool {
namespace {

using pictures::Picture;

constexpr int kGap = 6;         // around cells
constexpr int kPictureGap = 2;  // between the pictures of a cell

int width_of(const Cell& cell) {
    int width = 0, text = 0;
    for (const Picture& picture : cell.pictures) {
        width += (width == 0 ? 0 : kPictureGap) + picture.width;
    }
    for (const std::string& label : cell.labels) {
        text = std::max(text, pictures::text_width(label));
    }
    return std::max(width, text);
}

int labels_height(const std::vector<Cell>& row) {
    size_t lines = 0;
    for (const Cell& cell : row) {
        lines = std::max(lines, cell.labels.size());
    }
    return static_cast<int>(lines) * pictures::kLetterHeight;
}

int height_of(const std::vector<Cell>& row) {
    int height = 0;
    for (const Cell& cell : row) {
        for (const Picture& picture : cell.pictures) {
            height = std::max(height, picture.height);
        }
    }
    return labels_height(row) + height;
}

}  // namespace

Picture crop_of(const Picture& picture, int x, int y, int width, int height) {
    Picture crop = pictures::new_picture("a crop", width, height, picture.channels, picture.max);
    const size_t pixel = picture.row_bytes() / static_cast<size_t>(picture.width);
    for (int row = 0; row < height; ++row) {
        std::memcpy(crop.row<uint8_t>(row), picture.row<uint8_t>(y + row) + static_cast<size_t>(x) * pixel,
                    crop.row_bytes());
    }
    return crop;
}

Picture as_rgb8(const Picture& picture, int zoom) {
    Picture rgb = pictures::new_picture("a crop", int64_t{picture.width} * zoom,
                                        int64_t{picture.height} * zoom, 3, 255);
    for (int y = 0; y < rgb.height; ++y) {
        for (int x = 0; x < rgb.width; ++x) {
            for (int c = 0; c < 3; ++c) {
                const size_t from = static_cast<size_t>(x / zoom) * static_cast<size_t>(picture.channels) +
                                    static_cast<size_t>(picture.colours() == 3 ? c : 0);
                const int v = picture.max > 255 ? picture.row<uint16_t>(y / zoom)[from]
                                                : picture.row<uint8_t>(y / zoom)[from];
                rgb.row<uint8_t>(y)[3 * x + c] =
                    static_cast<uint8_t>((v * 255 + picture.max / 2) / picture.max);
            }
        }
    }
    return rgb;
}

Picture contact_sheet(const std::vector<std::vector<Cell>>& rows) {
    std::vector<int> widths;
    int width = kGap, height = kGap;
    for (const std::vector<Cell>& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], width_of(row[i]));
        }
        height += height_of(row) + kGap;
    }
    for (const int w : widths) {
        width += w + kGap;
    }
    Picture sheet = pictures::new_picture("the sheet", width, height, 3, 255);
    std::memset(sheet.memory.get(), 255, sheet.bytes());
    int y = kGap;
    for (const std::vector<Cell>& row : rows) {
        int x = kGap;
        for (size_t i = 0; i < row.size(); ++i) {
            int line = y;
            for (const std::string& label : row[i].labels) {
                pictures::draw_text(sheet, x, line, label);
                line += pictures::kLetterHeight;
            }
            int left = x;
            for (const Picture& picture : row[i].pictures) {
                for (int k = 0; k < picture.height; ++k) {
                    std::memcpy(
                        sheet.row<uint8_t>(y + labels_height(row) + k) + static_cast<ptrdiff_t>(3) * left,
                        picture.row<uint8_t>(k), picture.row_bytes());
                }
                left += picture.width + kPictureGap;
            }
            x += widths[i] + kGap;
        }
        y += height_of(row) + kGap;
    }
    return sheet;
}

}  // namespace eetool
