// TIFF by libtiff, whose messages go to the handle's own handlers.
#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "picture_formats.h"

namespace pictures {
namespace {

// A file in memory: read from `source`, or written to `written`.
struct File {
    const Source* source = nullptr;
    Bytes written;
    uint64_t at = 0;
    std::string error;  // the first

    uint64_t size() const { return source != nullptr ? source->size : written.size(); }
};

File& file_of(thandle_t handle) {
    return *static_cast<File*>(handle);
}

tmsize_t read_bytes(thandle_t handle, void* to, tmsize_t size) {
    File& file = file_of(handle);
    const uint64_t left = file.at < file.size() ? file.size() - file.at : 0;
    const auto count = static_cast<size_t>(std::min<uint64_t>(left, static_cast<uint64_t>(size)));
    if (count > 0) {
        std::memcpy(to, (file.source != nullptr ? file.source->bytes : file.written.data()) + file.at, count);
    }
    if (static_cast<tmsize_t>(count) < size && file.error.empty()) {
        file.error = "ends early";
    }
    file.at += count;
    return static_cast<tmsize_t>(count);
}

tmsize_t write_bytes(thandle_t handle, void* from, tmsize_t size) {
    File& file = file_of(handle);
    try {
        const auto count = static_cast<uint64_t>(size);
        file.written.resize(std::max(file.written.size(), static_cast<size_t>(file.at + count)));
        std::memcpy(file.written.data() + file.at, from, static_cast<size_t>(count));
        file.at += count;
        return size;
    } catch (const std::exception&) {
        return -1;
    }
}

toff_t seek(thandle_t handle, toff_t offset, int whence) {
    File& file = file_of(handle);
    file.at = offset + (whence == SEEK_SET ? 0 : whence == SEEK_CUR ? file.at : file.size());
    return file.at;
}

toff_t size_of(thandle_t handle) {
    return file_of(handle).size();
}

int close_file(thandle_t) {
    return 0;
}

int on_error(TIFF*, void* user, const char*, const char* format, va_list arguments) {
    auto* const file = static_cast<File*>(user);
    if (file->error.empty()) {
        char text[256];
        std::vsnprintf(text, sizeof text, format, arguments);
        file->error = text;
    }
    return 1;
}

// Warnings are of tags that are unknown or missing; what the JPEG codec warns of are samples that it made up.
int on_warning(TIFF* tiff, void* user, const char* module, const char* format, va_list arguments) {
    return module != nullptr && std::strncmp(module, "JPEG", 4) == 0
               ? on_error(tiff, user, module, format, arguments)
               : 1;
}

struct CloseTiff {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using Tiff = std::unique_ptr<TIFF, CloseTiff>;

Tiff open_tiff(const std::string& name, File& file, const char* mode, size_t most_memory) {
    TIFFOpenOptions* const options = TIFFOpenOptionsAlloc();
    if (options == nullptr) {
        throw std::bad_alloc();
    }
    TIFFOpenOptionsSetErrorHandlerExtR(options, on_error, &file);
    TIFFOpenOptionsSetWarningHandlerExtR(options, on_warning, &file);
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, static_cast<tmsize_t>(most_memory));
    Tiff tiff(TIFFClientOpenExt(name.c_str(), mode, &file, read_bytes, write_bytes, seek, close_file, size_of,
                                nullptr, nullptr, options));
    TIFFOpenOptionsFree(options);
    return tiff;
}

// A number that a tag has, or its default.
int tag(TIFF* tiff, uint32_t name) {
    uint16_t value = 0;
    return TIFFGetFieldDefaulted(tiff, name, &value) != 0 ? value : 0;
}

class Reader {
  public:
    Reader(const Source& source, File& file, TIFF* tiff) : source_(source), file_(file), tiff_(tiff) {
        TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width_);
        TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height_);
    }

    Picture read() {
        const int kind = tag(tiff_, TIFFTAG_PHOTOMETRIC), format = tag(tiff_, TIFFTAG_SAMPLEFORMAT);
        if (kind == PHOTOMETRIC_SEPARATED) {
            source_.fail("has CMYK colours; convert it to RGB first");
        }
        if (format != SAMPLEFORMAT_UINT && format != SAMPLEFORMAT_VOID) {
            source_.fail("has samples that are no plain numbers (floating point or signed)");
        }
        const bool in_jpeg = tag(tiff_, TIFFTAG_COMPRESSION) == COMPRESSION_JPEG && kind == PHOTOMETRIC_YCBCR;
        if (in_jpeg) {
            TIFFSetField(tiff_, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
        }
        const bool grey = kind == PHOTOMETRIC_MINISBLACK || kind == PHOTOMETRIC_MINISWHITE;
        const bool plain = grey || kind == PHOTOMETRIC_RGB || in_jpeg;
        const int bits = tag(tiff_, TIFFTAG_BITSPERSAMPLE), all = tag(tiff_, TIFFTAG_SAMPLESPERPIXEL);
        if (bits > 16) {
            source_.fail("has " + std::to_string(bits) + " bits a sample; 16 are the most");
        }
        const int extra = extra_samples(all - (grey ? 1 : 3), plain);
        if (!plain || (bits != 8 && bits != 16)) {
            return convert(grey);
        }
        if (all != (grey ? 1 : 3) + extra) {
            source_.fail("has " + std::to_string(all) + " samples a pixel, which its colours do not need");
        }
        Picture picture = source_.room(width_, height_, all, bits == 16 ? 65535 : 255);
        if (TIFFIsTiled(tiff_) != 0) {
            read_tiles(picture);
        } else {
            read_rows(picture);
        }
        if (kind == PHOTOMETRIC_MINISWHITE) {
            invert(picture);
        }
        return picture;
    }

    [[noreturn]] void fail() const { source_.fail(file_.error.empty() ? "is damaged" : file_.error); }

  private:
    // How many samples a pixel has beside its colours: none, or alpha.
    int extra_samples(int more, bool plain) const {
        uint16_t count = 0;
        uint16_t* kinds = nullptr;
        TIFFGetFieldDefaulted(tiff_, TIFFTAG_EXTRASAMPLES, &count, &kinds);
        if (count > 0 && kinds[0] == EXTRASAMPLE_ASSOCALPHA) {
            source_.fail(
                "has alpha multiplied into its colours; convert it to plain alpha, or flatten it, first");
        }
        if (plain && (count > 1 || more > 1)) {
            source_.fail("has more than one sample a pixel beside its colours");
        }
        return count > 0 || more > 0 ? 1 : 0;
    }

    bool is_separate() const { return tag(tiff_, TIFFTAG_PLANARCONFIG) == PLANARCONFIG_SEPARATE; }

    // Pixels of one row from `in`: all their samples, or sample `channel` of each.
    static void place(Picture& picture, int y, int x, int count, const uint8_t* in, int channel) {
        const int bytes = picture.sample_bytes();
        uint8_t* const row = picture.row<uint8_t>(y);
        const size_t pixel = picture.row_bytes() / static_cast<size_t>(picture.width);
        if (channel < 0) {
            std::memcpy(row + static_cast<size_t>(x) * pixel, in, static_cast<size_t>(count) * pixel);
            return;
        }
        for (int i = 0; i < count; ++i) {
            std::memcpy(row + static_cast<size_t>(x + i) * pixel + static_cast<size_t>(channel * bytes),
                        in + static_cast<size_t>(i) * static_cast<size_t>(bytes), static_cast<size_t>(bytes));
        }
    }

    void read_rows(Picture& picture) {
        const bool separate = is_separate();
        Bytes line(static_cast<size_t>(std::max<tmsize_t>(TIFFScanlineSize(tiff_), 0)));
        const size_t needed = picture.row_bytes() / static_cast<size_t>(separate ? picture.channels : 1);
        if (line.size() < needed) {
            fail();
        }
        for (int c = 0; c < (separate ? picture.channels : 1); ++c) {
            for (int y = 0; y < picture.height; ++y) {
                if (TIFFReadScanline(tiff_, line.data(), static_cast<uint32_t>(y),
                                     static_cast<uint16_t>(c)) != 1 ||
                    !file_.error.empty()) {
                    fail();
                }
                place(picture, y, 0, picture.width, line.data(), separate ? c : -1);
            }
        }
    }

    void read_tiles(Picture& picture) {
        const bool separate = is_separate();
        uint32_t tile_width = 0, tile_height = 0;
        TIFFGetField(tiff_, TIFFTAG_TILEWIDTH, &tile_width);
        TIFFGetField(tiff_, TIFFTAG_TILELENGTH, &tile_height);
        const tmsize_t row_size = TIFFTileRowSize(tiff_), tile_size = TIFFTileSize(tiff_);
        const uint64_t pixel = static_cast<uint64_t>(picture.sample_bytes()) *
                               static_cast<uint64_t>(separate ? 1 : picture.channels);
        if (tile_width == 0 || tile_height == 0 || row_size <= 0 || tile_size <= 0 ||
            static_cast<uint64_t>(row_size) < pixel * tile_width ||
            static_cast<uint64_t>(tile_size) / tile_height < static_cast<uint64_t>(row_size) ||
            static_cast<uint64_t>(tile_size) > source_.most_pixels * 8) {
            fail();
        }
        Bytes tile(static_cast<size_t>(tile_size));
        for (int c = 0; c < (separate ? picture.channels : 1); ++c) {
            for (int64_t y0 = 0; y0 < picture.height; y0 += tile_height) {
                for (int64_t x0 = 0; x0 < picture.width; x0 += tile_width) {
                    if (TIFFReadTile(tiff_, tile.data(), static_cast<uint32_t>(x0), static_cast<uint32_t>(y0),
                                     0, static_cast<uint16_t>(c)) < 0 ||
                        !file_.error.empty()) {
                        fail();
                    }
                    const auto rows = static_cast<int>(std::min<int64_t>(tile_height, picture.height - y0));
                    const auto count = static_cast<int>(std::min<int64_t>(tile_width, picture.width - x0));
                    for (int y = 0; y < rows; ++y) {
                        place(picture, static_cast<int>(y0) + y, static_cast<int>(x0), count,
                              tile.data() + static_cast<size_t>(y) * static_cast<size_t>(row_size),
                              separate ? c : -1);
                    }
                }
            }
        }
    }

    static void invert(Picture& picture) {
        // Alpha is not inverted.
        for (int y = 0; y < picture.height; ++y) {
            for (size_t i = 0; i < picture.row_samples(); i += static_cast<size_t>(picture.channels)) {
                if (picture.max > 255) {
                    uint16_t& v = picture.row<uint16_t>(y)[i];
                    v = static_cast<uint16_t>(65535 - v);
                } else {
                    uint8_t& v = picture.row<uint8_t>(y)[i];
                    v = static_cast<uint8_t>(255 - v);
                }
            }
        }
    }

    // Everything else by libtiff's own conversion to 8 bits: palettes, fewer bits, YCbCr.
    Picture convert(bool grey) {
        char why[1024] = "";
        if (TIFFRGBAImageOK(tiff_, why) == 0) {
            source_.fail(why);
        }
        Picture picture = source_.room(width_, height_, grey ? 1 : 3, 255);
        const Picture words = source_.room(width_, height_, 4, 255);
        auto* const pixels = static_cast<uint32_t*>(static_cast<void*>(words.memory.get()));
        // The orientation is applied later, as in other pictures: here all count as upright.
        const int orientation = tag(tiff_, TIFFTAG_ORIENTATION);
        if (TIFFReadRGBAImageOriented(tiff_, width_, height_, pixels, orientation, 1) != 1 ||
            !file_.error.empty()) {
            fail();
        }
        for (int y = 0; y < picture.height; ++y) {
            uint8_t* out = picture.row<uint8_t>(y);
            const uint32_t* const in = pixels + static_cast<size_t>(y) * static_cast<size_t>(picture.width);
            for (int x = 0; x < picture.width; ++x) {
                *out++ = static_cast<uint8_t>(TIFFGetR(in[x]));
                if (!grey) {
                    *out++ = static_cast<uint8_t>(TIFFGetG(in[x]));
                    *out++ = static_cast<uint8_t>(TIFFGetB(in[x]));
                }
            }
        }
        return picture;
    }

    const Source& source_;
    File& file_;
    TIFF* const tiff_;
    uint32_t width_ = 0, height_ = 0;
};

}  // namespace

Stored read_tiff(const Source& source) {
    File file;
    file.source = &source;
    // No block of a picture that may be read needs more: 8 bytes a pixel.
    const Tiff tiff = open_tiff(source.name, file, "rm", source.most_pixels * 8 + (size_t{1} << 20));
    if (tiff == nullptr) {
        source.fail(file.error.empty() ? "is damaged" : file.error);
    }
    Stored stored{Reader(source, file, tiff.get()).read(), tag(tiff.get(), TIFFTAG_ORIENTATION)};
    uint32_t size = 0;
    void* profile = nullptr;
    if (TIFFGetField(tiff.get(), TIFFTAG_ICCPROFILE, &size, &profile) == 1) {
        const auto* const bytes = static_cast<const uint8_t*>(profile);
        stored.picture.icc.assign(bytes, bytes + size);
    }
    if (!file.error.empty()) {
        source.fail(file.error);
    }
    if (TIFFLastDirectory(tiff.get()) == 0) {
        stored.picture.remark = "has several pictures; the first is taken";
    }
    return stored;
}

Bytes write_tiff(const std::string& name, const Picture& picture) {
    File file;
    bool written = false;
    // Beyond 32-bit offsets: the larger form of the format.
    const bool big = picture.bytes() > (size_t{3} << 30);
    {
        const Tiff tiff = open_tiff(name, file, big ? "w8" : "w", 0);
        if (tiff != nullptr) {
            TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(picture.width));
            TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(picture.height));
            TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, 8 * picture.sample_bytes());
            TIFFSetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, picture.channels);
            TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC,
                         picture.colours() == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
            TIFFSetField(tiff.get(), TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
            TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, COMPRESSION_LZW);
            TIFFSetField(tiff.get(), TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
            TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff.get(), 0));
            if (picture.has_alpha()) {
                const uint16_t plain = EXTRASAMPLE_UNASSALPHA;
                TIFFSetField(tiff.get(), TIFFTAG_EXTRASAMPLES, 1, &plain);
            }
            if (!picture.icc.empty()) {
                TIFFSetField(tiff.get(), TIFFTAG_ICCPROFILE, static_cast<uint32_t>(picture.icc.size()),
                             picture.icc.data());
            }
            Bytes line(picture.row_bytes());  // which the predictor overwrites
            written = true;
            for (int y = 0; y < picture.height && written; ++y) {
                std::memcpy(line.data(), picture.row<uint8_t>(y), line.size());
                written = TIFFWriteScanline(tiff.get(), line.data(), static_cast<uint32_t>(y), 0) == 1;
            }
            written = written && TIFFFlush(tiff.get()) == 1;
        }
    }
    if (!written || !file.error.empty()) {
        throw Error(name + ": " + (file.error.empty() ? "no memory to write it" : file.error));
    }
    return std::move(file.written);
}

}  // namespace pictures
