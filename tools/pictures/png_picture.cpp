// PNG by libpng. Its errors come back by longjmp(), over frames that have nothing to destroy.
#include <png.h>

#include <bit>
#include <csetjmp>
#include <cstring>

#include "picture_formats.h"

namespace pictures {
namespace {

// Small pictures are documents rather than steps of work: they are worth the time.
constexpr size_t kSmall = size_t{4} << 20;  // bytes
// Photographs hardly shrink at higher levels, which take up to four times as long.
constexpr int kLevel = 1;

struct Errors {
    char text[256] = "";
};

[[noreturn]] void leave(png_structp png, png_const_charp text) {
    auto* const errors = static_cast<Errors*>(png_get_error_ptr(png));
    std::strncpy(errors->text, text, sizeof errors->text - 1);
    png_longjmp(png, 1);
}

// Warnings are of side data (profiles, texts); damaged image data is an error.
void pass_over(png_structp, png_const_charp) {}

// Whether the call came to its end.
template <typename Call>
bool succeeds(png_structp png, const Call& call) {
    if (setjmp(png_jmpbuf(png)) != 0) {  // NOLINT(cert-err52-cpp): the library knows no other way
        return false;
    }
    call();
    return true;
}

struct Rest {
    const uint8_t* bytes;
    size_t size;
};

void take(png_structp png, png_bytep to, size_t size) {
    auto* const rest = static_cast<Rest*>(png_get_io_ptr(png));
    if (rest->size < size) {
        png_error(png, "ends early");
    }
    std::memcpy(to, rest->bytes, size);
    rest->bytes += size;
    rest->size -= size;
}

void append(png_structp png, png_bytep from, size_t size) {
    bool done = true;
    try {
        auto* const bytes = static_cast<Bytes*>(png_get_io_ptr(png));
        bytes->insert(bytes->end(), from, from + size);
    } catch (const std::bad_alloc&) {
        done = false;
    }
    if (!done) {
        png_error(png, "no memory");
    }
}

void flush(png_structp) {}

struct Reader {
    Errors errors;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &errors, leave, pass_over);
    png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
    Reader() = default;
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader() { png_destroy_read_struct(&png, &info, nullptr); }
};

struct Writer {
    Errors errors;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &errors, leave, pass_over);
    png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
    Writer() = default;
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    ~Writer() { png_destroy_write_struct(&png, &info); }
};

void take_colours(png_structp png, png_infop info, Picture& picture) {
    png_charp name = nullptr;
    png_bytep profile = nullptr;
    png_uint_32 size = 0;
    int compression = 0, intent = 0;
    if (png_get_iCCP(png, info, &name, &compression, &profile, &size) != 0) {
        picture.icc.assign(profile, profile + size);
        return;  // libpng makes the other chunks up from it
    }
    if (png_get_sRGB(png, info, &intent) != 0) {
        picture.png.srgb_intent = intent;
        return;
    }
    png_fixed_point gamma = 0;
    if (png_get_gAMA_fixed(png, info, &gamma) != 0) {
        picture.png.gamma = gamma;
    }
    png_fixed_point c[8] = {};
    if (png_get_cHRM_fixed(png, info, &c[0], &c[1], &c[2], &c[3], &c[4], &c[5], &c[6], &c[7]) != 0) {
        picture.png.chromaticities = std::to_array(c);
    }
}

void put_colours(png_structp png, png_infop info, const Picture& picture) {
    if (!picture.icc.empty()) {
        png_set_iCCP(png, info, "icc", 0, picture.icc.data(), static_cast<png_uint_32>(picture.icc.size()));
    }
    if (picture.png.srgb_intent) {
        png_set_sRGB(png, info, *picture.png.srgb_intent);
    }
    if (picture.png.gamma) {
        png_set_gAMA_fixed(png, info, *picture.png.gamma);
    }
    if (picture.png.chromaticities) {
        const auto& c = *picture.png.chromaticities;
        png_set_cHRM_fixed(png, info, c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7]);
    }
}

}  // namespace

Stored read_png(const Source& source) {
    Reader reader;
    png_structp const png = reader.png;
    png_infop const info = reader.info;
    if (info == nullptr) {
        throw std::bad_alloc();
    }
    Rest rest{source.bytes, source.size};
    const auto require = [&](bool succeeded) {
        if (!succeeded) {
            source.fail(reader.errors.text);
        }
    };
    require(succeeds(png, [&] {
        png_set_user_limits(png, INT32_MAX, INT32_MAX);  // the number of pixels is checked instead
        png_set_read_fn(png, &rest, take);
        png_read_info(png, info);
        png_set_expand(png);
        if (std::endian::native == std::endian::little) {
            png_set_swap(png);
        }
        png_set_interlace_handling(png);
        png_read_update_info(png, info);
    }));
    const int max = png_get_bit_depth(png, info) == 16 ? 65535 : 255;
    Stored stored{source.room(png_get_image_width(png, info), png_get_image_height(png, info),
                              png_get_channels(png, info), max)};
    Picture& picture = stored.picture;
    if (png_get_rowbytes(png, info) != picture.row_bytes()) {
        source.fail("has an unknown kind of pixels");
    }
    take_colours(png, info, picture);
    std::vector<png_bytep> rows(static_cast<size_t>(picture.height));
    for (int y = 0; y < picture.height; ++y) {
        rows[static_cast<size_t>(y)] = picture.row<uint8_t>(y);
    }
    png_bytep exif = nullptr;
    png_uint_32 exif_size = 0;
    require(succeeds(png, [&] {
        png_read_image(png, rows.data());
        png_read_end(png, info);
        png_get_eXIf_1(png, info, &exif_size, &exif);
    }));
    stored.orientation = exif == nullptr ? 1 : exif_orientation(exif, exif_size);
    return stored;
}

Bytes write_png(const std::string& name, const Picture& picture) {
    static constexpr int kTypes[] = {0, PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA, PNG_COLOR_TYPE_RGB,
                                     PNG_COLOR_TYPE_RGB_ALPHA};
    Bytes bytes;
    Writer writer;
    png_structp const png = writer.png;
    png_infop const info = writer.info;
    if (info == nullptr) {
        throw std::bad_alloc();
    }
    bytes.reserve(picture.bytes() / 2);
    const bool written = succeeds(png, [&] {
        png_set_write_fn(png, &bytes, append, flush);
        png_set_user_limits(png, INT32_MAX, INT32_MAX);
        png_set_benign_errors(png, 1);  // a profile that the format does not take is left out
        png_set_IHDR(png, info, static_cast<png_uint_32>(picture.width),
                     static_cast<png_uint_32>(picture.height), 8 * picture.sample_bytes(),
                     kTypes[picture.channels], PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                     PNG_FILTER_TYPE_DEFAULT);
        put_colours(png, info, picture);
        if (picture.bytes() > kSmall) {
            png_set_compression_level(png, kLevel);
            png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_UP);
        } else {
            png_set_compression_level(png, 9);
        }
        png_set_compression_buffer_size(png, size_t{1} << 18);
        png_write_info(png, info);
        if (picture.sample_bytes() == 2 && std::endian::native == std::endian::little) {
            png_set_swap(png);
        }
        for (int y = 0; y < picture.height; ++y) {
            png_write_row(png, picture.row<uint8_t>(y));
        }
        png_write_end(png, nullptr);
    });
    if (!written) {
        throw Error(name + ": " + writer.errors.text);
    }
    return bytes;
}

}  // namespace pictures
