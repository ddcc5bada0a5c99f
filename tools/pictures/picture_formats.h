// The formats behind pictures.h. Each reads from and writes to memory; `name` is for messages.
#ifndef CMODEL_PICTURE_FORMATS_H
#define CMODEL_PICTURE_FORMATS_H

#include "pictures.h"

namespace pictures {

struct Source {
    const uint8_t* bytes;
    size_t size;
    const std::string& name;
    size_t most_pixels;

    // Throws Error, in one line whatever the text of a library has.
    [[noreturn]] void fail(std::string what) const;
    // Room for the picture, or an error when it has more pixels than may be.
    Picture room(int64_t width, int64_t height, int channels, int max) const;
};

// The samples as they lie in the file, and the orientation it asks for: 1 to 8 as Exif counts, 1 upright.
struct Stored {
    Picture picture;
    int orientation = 1;
};

using Bytes = std::vector<uint8_t>;

Stored read_jpeg(const Source& source);
Stored read_png(const Source& source);
Stored read_tiff(const Source& source);
Stored read_pnm(const Source& source);

// Of pictures that require_format() lets pass; of a maximum of 255 or 65535, but for PNM.
Bytes write_jpeg(const std::string& name, const Picture& picture);
Bytes write_png(const std::string& name, const Picture& picture);
Bytes write_tiff(const std::string& name, const Picture& picture);
Bytes write_pnm(const std::string& name, const Picture& picture);

// The orientation in a block of Exif data, which begins with its byte order; 1 if it says none.
int exif_orientation(const uint8_t* bytes, size_t size);

}  // namespace pictures

#endif
