// Photographs as files and as planes: what is read, what comes back, and what is refused.
#include <tiffio.h>
// jpeglib.h needs <cstdio> before it.
#include <jpeglib.h>

#include <cmath>
#include <map>
#include <random>

#include "colour.h"
#include "photo_planes.h"
#include "test_frames.h"

namespace pictures {
namespace {

using Bytes = std::vector<uint8_t>;
using Values = std::vector<int>;

Values values_of(const Picture& p) {
    Values values;
    for (int y = 0; y < p.height; ++y)
        for (size_t i = 0; i < p.row_samples(); ++i)
            values.push_back(p.max > 255 ? p.row<uint16_t>(y)[i] : p.row<uint8_t>(y)[i]);
    return values;
}

Picture make(int width, int height, int channels, int max, const Values& values) {
    Picture p = new_picture("made", width, height, channels, max);
    for (size_t i = 0; i < values.size(); ++i) {
        if (max > 255)
            p.row<uint16_t>(0)[i] = static_cast<uint16_t>(values[i]);
        else
            p.row<uint8_t>(0)[i] = static_cast<uint8_t>(values[i]);
    }
    return p;
}

// The least that libpng takes for a profile: a header, and no tags.
Bytes profile(int colours) {
    Bytes icc(132);
    for (size_t i = 84; i < 128; ++i) icc[i] = static_cast<uint8_t>(i * 37);  // enough to be compressed
    const std::pair<size_t, std::string> parts[] = {
        {0, std::string("\0\0\0\x84", 4)},
        {12, "mntr"},
        {16, colours == 1 ? "GRAY" : "RGB "},
        {20, "XYZ "},
        {36, "acsp"},
        {68, std::string("\0\0\xf6\xd6\0\1\0\0\0\0\xd3\x2d", 12)}};
    for (const auto& [at, text] : parts)
        std::copy(text.begin(), text.end(), icc.begin() + static_cast<ptrdiff_t>(at));
    return icc;
}

Picture random_picture(int width, int height, int channels, int max, unsigned seed = 1) {
    std::mt19937 random(seed);
    Values values(static_cast<size_t>(width * height * channels));
    for (int& v : values) v = static_cast<int>(random() % static_cast<unsigned>(max + 1));
    Picture p = make(width, height, channels, max, values);
    p.icc = profile(p.colours());
    return p;
}

Picture decode(const Bytes& bytes) {
    return decode_picture(bytes.data(), bytes.size(), "in", 1 << 20);
}

std::string error_of(const Bytes& bytes) {
    try {
        decode(bytes);
        return "";
    } catch (const Error& e) {
        EXPECT_EQ(std::string(e.what()).find("in: "), 0U) << e.what();
        return e.what();
    }
}

// A TIFF file with these numbers in its tags and these bytes in its strip, or tile of 16x16; libtiff
// compresses.
Bytes tiff(int width, int height, const std::map<uint32_t, int>& tags, const Bytes& samples,
           const char* mode = "w") {
    TIFF* const t = TIFFOpen("made.tif", mode);
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, height);
    for (const auto& [tag, value] : tags) TIFFSetField(t, tag, value, value);
    const auto per_plane =
        static_cast<tmsize_t>(samples.size()) / (tags.contains(TIFFTAG_PLANARCONFIG) ? 3 : 1);
    for (tmsize_t at = 0; at < static_cast<tmsize_t>(samples.size()); at += per_plane) {
        void* const strip = const_cast<uint8_t*>(samples.data()) + at;
        const auto number = static_cast<uint32_t>(at / per_plane);
        EXPECT_GE(tags.contains(TIFFTAG_TILEWIDTH) ? TIFFWriteEncodedTile(t, number, strip, per_plane)
                                                   : TIFFWriteEncodedStrip(t, number, strip, per_plane),
                  0);
    }
    TIFFClose(t);
    const std::string text = read_file("made.tif");
    return {text.begin(), text.end()};
}

Bytes jpeg(J_COLOR_SPACE colours, int components, const Bytes& pixel, bool progressive = false) {
    jpeg_compress_struct info;
    jpeg_error_mgr errors;
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    jpeg_mem_dest(&info, &bytes, &size);
    info.image_width = info.image_height = 16;
    info.input_components = components;
    info.in_color_space = colours;
    jpeg_set_defaults(&info);
    if (progressive) jpeg_simple_progression(&info);
    jpeg_start_compress(&info, TRUE);
    Bytes row;
    for (int x = 0; x < 16; ++x) row.insert(row.end(), pixel.begin(), pixel.end());
    for (JSAMPROW line = row.data(); info.next_scanline < 16;) jpeg_write_scanlines(&info, &line, 1);
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    Bytes result(bytes, bytes + size);
    std::free(bytes);
    return result;
}

class Pictures : public FileTest {};

TEST_F(Pictures, ComeBackAsTheyWent) {
    const std::pair<int, int> sizes[] = {{1, 1}, {3, 2}, {17, 9}, {40000, 1}, {1, 300}};
    for (const auto& [width, height] : sizes)
        for (int channels = 1; channels <= 4; ++channels)
            for (const int max : {255, 65535, 1, 1023})
                for (const char* const name : {"a.png", "a.TIFF", "a.pnm"}) {
                    const Picture p = random_picture(width, height, channels, max);
                    const bool pnm = std::string(name) == "a.pnm";
                    if (pnm && p.has_alpha()) {
                        EXPECT_THROW(encode_picture(name, p), Error);
                        continue;
                    }
                    const Picture q = decode(encode_picture(name, p));
                    EXPECT_EQ(std::tie(q.width, q.height, q.channels),
                              std::tie(p.width, p.height, p.channels));
                    EXPECT_EQ(q.max, pnm ? max : max > 255 ? 65535 : 255);
                    Values want = values_of(p);
                    for (int& v : want) v = static_cast<int>((int64_t{v} * q.max + max / 2) / max);
                    EXPECT_EQ(values_of(q), want) << name << ' ' << width << ' ' << channels << ' ' << max;
                    EXPECT_EQ(q.icc, pnm ? Bytes() : p.icc) << name << width << channels << max;
                    EXPECT_EQ(q.remark, "");
                }
    const Picture photo = random_picture(16, 16, 3, 255), deep = random_picture(2, 2, 1, 256);
    EXPECT_EQ(decode(encode_picture("a.jpg", photo)).icc, photo.icc);
    for (const char* const name : {"a.pgm", "a.bmp", "png"}) EXPECT_THROW(encode_picture(name, photo), Error);
    for (const char* const name : {"a.jpeg", "a.ppm"}) EXPECT_THROW(encode_picture(name, deep), Error);
    // Nothing is left of a file that cannot be written, and of one that can nothing else.
    EXPECT_THROW(write_picture("absent/a.png", photo), Error);
    std::filesystem::create_directory("a.png");
    EXPECT_THROW(write_picture("a.png", photo), Error);
    std::filesystem::create_symlink("b.png", "c.png");
    write_picture("b.png", deep);
    write_picture("c.png", photo);
    EXPECT_EQ(values_of(read_picture("b.png")), values_of(photo));
    EXPECT_TRUE(std::filesystem::is_symlink("c.png"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 3);
}

TEST_F(Pictures, StandUpright) {
    // a b c / d e f, shown as each of the eight asks.
    const Values shown[] = {{1, 2, 3, 4, 5, 6}, {3, 2, 1, 6, 5, 4}, {6, 5, 4, 3, 2, 1}, {4, 5, 6, 1, 2, 3},
                            {1, 4, 2, 5, 3, 6}, {4, 1, 5, 2, 6, 3}, {6, 3, 5, 2, 4, 1}, {3, 6, 2, 5, 1, 4}};
    for (const int channels : {1, 2, 3, 4})
        for (const int bytes : {1, 2})
            for (int tag = 1; tag <= 8; ++tag) {
                Bytes samples;
                Values want;
                const size_t pixel = static_cast<size_t>(channels * bytes);
                for (int v = 1; v <= 6; ++v) samples.insert(samples.end(), pixel, static_cast<uint8_t>(v));
                for (const int v : shown[tag - 1])
                    want.insert(want.end(), static_cast<size_t>(channels), bytes == 1 ? v : 257 * v);
                std::map<uint32_t, int> tags = {{TIFFTAG_ORIENTATION, tag},
                                                {TIFFTAG_BITSPERSAMPLE, 8 * bytes},
                                                {TIFFTAG_SAMPLESPERPIXEL, channels},
                                                {TIFFTAG_PHOTOMETRIC, channels < 3 ? 1 : 2}};
                const Picture p = decode(tiff(3, 2, tags, samples));
                EXPECT_EQ(p.width, tag > 4 ? 2 : 3);
                EXPECT_EQ(values_of(p), want) << channels << ' ' << bytes << ' ' << tag;
            }
    // The same tag in Exif data: of a JPEG whose blocks are flat, and of a PNG.
    Picture blocks = new_picture("made", 24, 16, 1, 255);
    for (int i = 0; i < 24 * 16; ++i)
        blocks.memory[static_cast<size_t>(i)] = static_cast<uint8_t>(40 * (1 + i % 24 / 8 + i / 24 / 8 * 3));
    const Bytes plain = encode_picture("a.jpg", blocks);
    for (const bool big : {false, true})
        for (int tag = 0; tag <= 9; ++tag) {
            Bytes exif = big ? Bytes{'M', 'M', 0, 42, 0, 0, 0, 8, 0, 1, 1, 18, 0, 3, 0, 0, 0, 1, 0}
                             : Bytes{'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 18, 1, 3, 0, 1, 0, 0, 0};
            exif.insert(exif.end(), {static_cast<uint8_t>(tag), 0, 0, 0});
            Bytes marker = {0xff, 0xe1, 0, static_cast<uint8_t>(exif.size() + 8), 'E', 'x', 'i', 'f', 0, 0};
            marker.insert(marker.end(), exif.begin(), exif.end());
            Bytes file = plain;
            file.insert(file.begin() + 2, marker.begin(), marker.end());
            const Picture p = decode(file);
            Values corners;
            for (int y = 4; y < p.height; y += 8)
                for (int x = 4; x < p.width; x += 8) corners.push_back((p.row<uint8_t>(y)[x] + 20) / 40);
            EXPECT_EQ(corners, shown[tag >= 1 && tag <= 8 ? tag - 1 : 0]) << big << tag;
        }
}

TEST_F(Pictures, OfEveryKind) {
    const auto tags = [](int kind, int bits, int samples, std::map<uint32_t, int> more = {}) {
        more.insert(
            {{TIFFTAG_PHOTOMETRIC, kind}, {TIFFTAG_BITSPERSAMPLE, bits}, {TIFFTAG_SAMPLESPERPIXEL, samples}});
        return more;
    };
    Bytes tile(256);
    tile[0] = 9, tile[1] = 8, tile[16] = 7;
    const struct {
        Bytes file;
        int channels;
        Values values;  // the first ones
    } good[] = {
        {tiff(2, 1, tags(PHOTOMETRIC_MINISWHITE, 8, 1), {0, 250}), 1, {255, 5}},
        {tiff(2, 1, tags(PHOTOMETRIC_MINISWHITE, 16, 1), {1, 1, 0, 0}), 1, {65278, 65535}},
        {tiff(3, 1, tags(PHOTOMETRIC_MINISBLACK, 1, 1), {0xa0}), 1, {255, 0, 255}},
        {tiff(2, 1, tags(PHOTOMETRIC_MINISBLACK, 4, 1), {0x1f}), 1, {17, 255}},
        {tiff(2, 1, tags(PHOTOMETRIC_MINISBLACK, 16, 1), {2, 2, 4, 4}, "wb"), 1, {514, 1028}},
        {tiff(2, 1, tags(PHOTOMETRIC_RGB, 8, 3, {{TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE}}),
              {1, 2, 3, 4, 5, 6}),
         3,
         {1, 3, 5, 2, 4, 6}},
        {tiff(2, 2, tags(PHOTOMETRIC_MINISBLACK, 8, 1, {{TIFFTAG_TILEWIDTH, 16}, {TIFFTAG_TILELENGTH, 16}}),
              tile),
         1,
         {9, 8, 7, 0}},
        {tiff(1, 1, tags(PHOTOMETRIC_RGB, 8, 4), {1, 2, 3, 4}), 4, {1, 2, 3, 4}},
        {jpeg(JCS_GRAYSCALE, 1, {77}, true), 1, {77, 77}},
        {jpeg(JCS_RGB, 3, {200, 200, 200}), 3, {200, 200, 200}},
        {{'P', '5', ' ', '1', ' ', '1', ' ', '9', '9', '9', '\n', 1, 2}, 1, {258}},
        {{'P', '5', '#', '\n', '1', '#', ' ', '2', '\n', ' ', '1', '\t', '9', '\n', 9}, 1, {9}},
    };
    for (const auto& g : good) {
        const Picture p = decode(g.file);
        const Values values = values_of(p);
        EXPECT_EQ(p.channels, g.channels);
        EXPECT_EQ(Values(values.begin(), values.begin() + static_cast<ptrdiff_t>(g.values.size())), g.values)
            << &g - good;
    }
    const Bytes png = encode_picture("a.png", random_picture(3, 2, 3, 255));
    const Bytes pgm = encode_picture("a.pgm", random_picture(3, 2, 1, 1023));
    const auto changed = [](Bytes file, size_t at, uint8_t by) {
        file[at] ^= by;
        return file;
    };
    const struct {
        Bytes file;
        const char* said;
    } bad[] = {
        {jpeg(JCS_CMYK, 4, {1, 2, 3, 4}), "CMYK"},
        {tiff(1, 1, tags(PHOTOMETRIC_SEPARATED, 8, 4), {1, 2, 3, 4}), "CMYK"},
        {tiff(1, 1, tags(PHOTOMETRIC_MINISBLACK, 32, 1), {1, 2, 3, 4}), "32 bits"},
        {tiff(1, 1, tags(PHOTOMETRIC_MINISBLACK, 32, 1, {{TIFFTAG_SAMPLEFORMAT, 3}}), {1, 2, 3, 4}),
         "floating"},
        {tiff(1, 1, tags(PHOTOMETRIC_RGB, 8, 5), {1, 2, 3, 4, 5}), "more than one sample"},
        {{}, "is empty"},
        {{'G', 'I', 'F', '8'}, "is no JPEG"},
        {changed(png, 16, 0x40), "CRC"},
        {changed(png, png.size() - 20, 1), "incorrect data"},
        {{'P', '5', '\n', '9', '9', '9', '9', ' ', '9', '9', '9', '9', '\n', '1', '\n'}, "9999x9999"},
        {{'P', '5', '\n', '0', ' ', '9', '\n', '1', '\n'}, "0x9"},
        {{'P', '5', '\n', '1', ' ', '1', '\n', '9', '\n', 10}, "above its maximum"},
    };
    for (const auto& b : bad)
        EXPECT_NE(error_of(b.file).find(b.said), std::string::npos) << b.said << error_of(b.file);
    // No part of a file passes for the whole.
    for (const Bytes& whole :
         {png, pgm, encode_picture("a.tif", random_picture(5, 4, 3, 255)),
          encode_picture("a.jpg", random_picture(20, 20, 3, 255)), jpeg(JCS_RGB, 3, {10, 20, 30}, true)})
        for (size_t size = 0; size < whole.size(); ++size)
            EXPECT_NE(error_of({whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)}), "") << size;
}

TEST_F(Pictures, TheBlockSeesTheModelsPlanes) {
    for (const int width : {1, 2, 511, 512, 1027}) {
        Frame rgb = make_frame(CM_FORMAT_RGB, static_cast<uint32_t>(width), 3, 3, 8);
        const Picture p = random_picture(width, 3, 3, 255), deep = make(width, 3, 3, 65535, [&] {
                                                                Values v = values_of(p);
                                                                for (int& s : v) s *= 257;
                                                                return v;
                                                            }());
        const Values values = values_of(p);
        std::copy(values.begin(), values.end(), rgb->data);
        const Frame ycbcr(CM_RGB2YCbCr(rgb));
        const uint32_t half = static_cast<uint32_t>(width + 1) / 2;
        const Frame y = make_plane(static_cast<uint32_t>(width), 3, {}), cb = make_plane(half, 3, {}),
                    cr = make_plane(half, 3, {});
        CM_YCbCr444to422(ycbcr, y, cb, cr);
        Values with_alpha;
        for (size_t i = 0; i < values.size(); ++i) {
            with_alpha.push_back(values[i]);
            if (i % 3 == 2) with_alpha.push_back(static_cast<int>(i % 256));
        }
        const Picture alpha = make(width, 3, 4, 255, with_alpha);
        for (const Picture* const q : {&p, &deep, &alpha}) {
            const PhotoPlanes planes = planes_of(*q, "p");
            const auto same = [](const Frame& want, const Memory& got) {
                const Samples samples = samples_of(*want);
                return std::equal(samples.begin(), samples.end(), got.get());
            };
            EXPECT_TRUE(same(y, planes.y) && same(cb, planes.cb) && same(cr, planes.cr)) << width;
        }
    }
    // Luma is rounded once: 128 of 32767 is 1.
    const PhotoPlanes grey = planes_of(make(5, 1, 1, 65535, {0, 128, 129, 65406, 65535}), "p");
    EXPECT_EQ(Values(grey.y.get(), grey.y.get() + 5), (Values{0, 0, 1, 254, 255}));
    EXPECT_EQ(Values(grey.cb.get(), grey.cb.get() + 3), (Values{128, 128, 128}));
}

TEST_F(Pictures, AChangeOfLumaIsAddedToEachColour) {
    const std::pair<int, int> sizes[] = {{1, 1}, {2, 3}, {37, 5}};
    for (const auto& [width, height] : sizes)
        for (int channels = 1; channels <= 4; ++channels)
            for (const int max : {255, 65535, 1023, 3}) {
                Picture p = random_picture(width, height, channels, max);
                const Values own = values_of(p);
                const Picture before = random_picture(width, height, 1, 255, 2);
                const Picture after = random_picture(width, height, 1, 255, 3);
                change_luma(p, before.memory.get(), before.memory.get());
                EXPECT_EQ(values_of(p), own);
                change_luma(p, before.memory.get(), after.memory.get());
                Values want = own;
                for (size_t i = 0; i < own.size(); ++i) {
                    const size_t pixel = i / static_cast<size_t>(channels);
                    const bool alpha = channels % 2 == 0 &&
                                       i % static_cast<size_t>(channels) + 1 == static_cast<size_t>(channels);
                    const double by = (after.memory[pixel] - before.memory[pixel]) * double{1} * max / 255;
                    if (!alpha) want[i] = std::clamp(own[i] + static_cast<int>(std::round(by)), 0, max);
                }
                EXPECT_EQ(values_of(p), want) << channels << ' ' << max;
            }
}

}  // namespace
}  // namespace pictures
