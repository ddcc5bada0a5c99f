// Frames and what the library does with them besides the blocks: copies, colour, chroma, image and side
// files. Worked values and literal bytes; the fuzz targets compare the readers on files of any bytes.
#include <fcntl.h>
#include <sys/file.h>

#include <climits>
#include <functional>
#include <sstream>
#include <thread>

#include "plane_memory.h"
#include "test_frames.h"

namespace {

using namespace std::string_literals;

// All of a new frame, which is freed, to be compared at once.
std::string show(FRAME* made) {
    const Frame f(made);
    std::ostringstream text;
    text << "type " << f->file_type << ", format " << f->format << ", " << f->width << "x" << f->height << "x"
         << f->channels << ", depth " << f->depth << ":";
    for (const int32_t s : samples_of(*f)) text << " " << s;
    return text.str();
}

std::string errors_of(const std::function<void()>& call) {
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

TEST(Frames, MadeFromOthers) {
    const Frame pixels = make_frame(CM_FORMAT_YCBCR, 1, 2, 3, 10, {1, 2, 3, 4, 5, 6});
    const Frame wide = make_plane(3, 1, {-5, 7, INT_MIN});
    const Frame rows = make_plane(2, 5, {0, 1, 10, 11, 20, 21, 30, 31, 40, 41}, 9);
    const struct {
        FRAME* made;
        const char* expected;
    } cases[] = {
        {CM_CopyFRAME(pixels), "type 5, format 1, 1x2x3, depth 10: 1 2 3 4 5 6"},
        {CM_CopySingleCh(pixels, 1), "type 5, format 2, 1x2x1, depth 10: 2 5"},
        {CM_Frame_Shift(wide, 0), "type 5, format 2, 3x1x1, depth 8: -5 7 -2147483648"},
        {CM_Frame_Shift(wide, 2), "type 5, format 2, 3x1x1, depth 6: -2 1 -536870912"},
        {CM_Frame_Shift(wide, 34), "type 5, format 2, 3x1x1, depth -26: -2 1 -536870912"},
        {CM_Frame_Shift(wide, -1), "type 5, format 2, 3x1x1, depth 9: -1 0 -1"},
        {CM_GetField(rows, 0), "type 0, format 2, 2x2x1, depth 9: 0 1 20 21"},  // the fifth row is dropped
        {CM_GetField(rows, 7), "type 7, format 2, 2x2x1, depth 9: 10 11 30 31"},
    };
    for (const auto& c : cases) EXPECT_EQ(show(c.made), c.expected);
    CM_DelFRAME(nullptr);
}

TEST(Frames, FilledFromOthers) {
    const Frame pixels = make_frame(CM_FORMAT_YCBCR, 1, 2, 3, 10, {1, 2, 3, 4, 5, 6});
    const Frame pair = make_frame(CM_FORMAT_SINGLE, 2, 1, 2, 8, {1, 2, 3, 4});
    const Frame c0 = make_plane(1, 2, {2, 5}), c1 = make_plane(1, 2, {20, 21}),
                c2 = make_plane(1, 2, {30, 31});
    const Frame field = make_plane(2, 1, {8, 9});
    const struct {
        Frame into;
        std::function<void(FRAME*)> fill;
        Samples expected;
    } cases[] = {
        {make_frame(1, 2, 3, 2, 8),
         [&](FRAME* f) { CM_CopyFrame(pixels, f); },
         {1, 2, 0, 0, 4, 5, 0, 0, 0, 0, 0, 0}},
        {make_frame(1, 1, 2, 4, 8), [&](FRAME* f) { CM_CopyFrame(pixels, f); }, {1, 2, 3, 0, 4, 5, 6, 0}},
        {make_frame(1, 1, 2, 3, 8),
         [&](FRAME* f) { EXPECT_EQ(CM_Merge3Ch(c0, c1, c2, f), f); },
         {2, 20, 30, 5, 21, 31}},
        {make_frame(1, 1, 2, 3, 8), [&](FRAME* f) { EXPECT_EQ(Frame_Set_Constant(f, -9), f); },
         Samples(6, -9)},
        {make_plane(2, 3, {}), [&](FRAME* f) { CM_SetField(f, field, -1); }, {0, 0, 8, 9, 0, 0}},
        {make_plane(2, 3, {}), [&](FRAME* f) { CM_SetField(f, field, 0); }, {8, 9, 0, 0, 0, 0}},
        {make_frame(1, 2, 1, 3, 8), [&](FRAME* f) { CM_CopyFrame_1to3(pair, f); }, {1, 1, 1, 3, 3, 3}},
        {make_plane(2, 1, {}), [&](FRAME* f) { CM_CopyFrame_1to3(pixels, f); }, {0, 0}},
    };
    const std::string log = errors_of([&] {
        for (const auto& c : cases) {
            c.fill(c.into);
            EXPECT_EQ(samples_of(*c.into), c.expected) << "case " << &c - cases;
        }
    });
    EXPECT_NE(log.find("FATAL common:222: CM_CopytFrame_1to3 error, src channel != 1\n"), log.npos) << log;
    EXPECT_NE(log.find("FATAL common:226: CM_CopyFrame_1to3 error, dst channel != 3\n"), log.npos) << log;
    const Frame grey = make_plane(1, 1, {4}), colour = make_frame(1, 1, 1, 3, 8);
    EXPECT_EQ(errors_of([&] { CM_CopyFrame_1to3(grey, colour); }), "");
}

// ---- Colour and chroma ----------------------------------------------------------------------------

TEST(Colour, Forward) {
    constexpr int kMin = INT_MIN;
    const struct {
        int depth;
        Samples rgb, ycbcr, unclamped;
    } cases[] = {
        {8, {200, 200, 200}, {200, 128, 128}, {200, 128, 128}},
        {8, {255, 0, 0}, {77, 84, 255}, {77, 84, 258}},
        {8, {0, 255, 0}, {149, 41, 18}, {149, 41, 18}},
        {8, {0, 0, 255}, {29, 255, 107}, {29, 258, 107}},
        {12, {4095, 0, 4095}, {1696, 3440, 3808}, {1696, 3440, 3808}},
        {8, {0, 9, 5}, {6, 127, 124}, {6, 127, 124}},   // Cb sum -128: half a step, away
        {8, {0, 12, 7}, {8, 128, 122}, {8, 128, 122}},  // -127
        {8, {9, 0, 4}, {3, 129, 132}, {3, 129, 132}},   // 128
        {8, {12, 0, 5}, {4, 128, 134}, {4, 128, 134}},  // 127
        {8, {-300, 2000, 77}, {255, 0, 0}, {1090, -461, -891}},
        {32, {100, 100, 100}, {0, 0, 0}, {100, kMin, kMin}},  // 2^32 counts as 1
        {8, {INT_MAX, kMin, INT_MAX}, {0, 128, 128}, {0, 128, 128}},
    };
    for (const auto& c : cases) {
        const Frame src = make_frame(CM_FORMAT_RGB, 1, 1, 3, c.depth, c.rgb);
        const Frame unclamped = make_frame(CM_FORMAT_YCBCR, 1, 1, 3, 0);
        EXPECT_EQ(show(CM_RGB2YCbCr(src)),
                  show(make_frame(CM_FORMAT_YCBCR, 1, 1, 3, c.depth, c.ycbcr).release()));
        EXPECT_EQ(samples_of(*CM_RGB2YCbCr_safe(src, unclamped)), c.unclamped);
    }
}

TEST(Colour, Inverse) {
    const struct {
        Samples ycbcr, rgb;
    } cases[] = {
        {{255, 128, 128}, {255, 255, 255}},
        {{100, 130, 131}, {104, 97, 103}},   // 104.113, 97.2324, 103.464
        {{100, 128, 123}, {93, 103, 100}},   // 93.145, 103.491
        {{100, 28, 228}, {237, 64, 0}},      // 237.1, 63.83, -73.2
        {{200, 528, 128}, {200, 65, 255}},   // 200, 65.4, 892.8
        {{900, 512, 512}, {255, 255, 255}},  // not 10-bit
        {{302, 606, 43}, {185, 201, 255}},   // 200.4999998 in single precision is 200.5
        {{-1000, INT_MAX, INT_MIN}, {0, 255, 255}},
        // Where the last digit of each factor shows.
        {{-1600, 1128, 128}, {0, 0, 132}},
        {{-1300, 128, 1128}, {71, 0, 0}},
        {{-6900, 128, -9872}, {0, 82, 0}},
        {{-3300, -9872, 128}, {0, 65, 0}},
    };
    for (const auto& c : cases) {
        const Frame src = make_frame(CM_FORMAT_YCBCR, 1, 1, 3, 10, c.ycbcr);
        EXPECT_EQ(show(CM_YCbCr2RGB(src)), show(make_frame(CM_FORMAT_RGB, 1, 1, 3, 10, c.rgb).release()));
    }
    // The caller's frame may be smaller: columns and rows beyond it are reflected, the last one stays.
    const Frame src = make_frame(CM_FORMAT_YCBCR, 3, 1, 3, 8, {10, 128, 128, 20, 128, 128, 30, 128, 128});
    const Frame dst = make_frame(CM_FORMAT_SINGLE, 2, 1, 3, 8);
    CM_YCbCr2RGB_safe(src, dst);
    EXPECT_EQ(samples_of(*dst), (Samples{30, 30, 30, 20, 20, 20}));
}

TEST(Chroma, Down) {
    Samples pixels;  // Y = 10y + x, Cb = 100 + Y, Cr = 200 + Y
    for (int i = 0; i < 45; ++i) pixels.push_back(i % 3 * 100 + i / 15 * 10 + i / 3 % 5);
    const Frame src = make_frame(CM_FORMAT_YCBCR, 5, 3, 3, 8, pixels);
    const Frame Y = make_plane(5, 3, {});
    const Frame cb422 = make_plane(3, 3, {}), cr422 = make_plane(3, 3, {});
    EXPECT_EQ(CM_YCbCr444to422(src, Y, cb422, cr422), 0);
    EXPECT_EQ(samples_of(*Y), (Samples{0, 1, 2, 3, 4, 10, 11, 12, 13, 14, 20, 21, 22, 23, 24}));
    EXPECT_EQ(samples_of(*cb422), (Samples{100, 102, 104, 110, 112, 114, 120, 122, 124}));
    EXPECT_EQ(samples_of(*cr422), (Samples{200, 202, 204, 210, 212, 214, 220, 222, 224}));
    // Rounded down, the last even column (row) is reflected onto the first of the two.
    const Frame cb420 = make_plane(2, 1, {}), cr420 = make_plane(2, 2, {});
    EXPECT_EQ(CM_YCbCr444to420(src, Y, cb420, cr420), 0);
    EXPECT_EQ(samples_of(*cb420), (Samples{124, 122}));
    EXPECT_EQ(samples_of(*cr420), (Samples{204, 202, 224, 222}));
    const Frame even =
        make_frame(CM_FORMAT_YCBCR, 4, 1, 3, 8, {0, 100, 200, 1, 101, 201, 2, 102, 202, 3, 103, 203});
    const Frame y4 = make_plane(4, 1, {}), cb2 = make_plane(2, 1, {}), cr2 = make_plane(2, 1, {});
    EXPECT_EQ(CM_YCbCr444to422(even, y4, cb2, cr2), 0);
    EXPECT_EQ(samples_of(*cb2), (Samples{100, 102}));
    EXPECT_EQ(samples_of(*cr2), (Samples{200, 202}));
}

TEST(Chroma, Up) {
    const Frame Y = make_plane(6, 1, {1, 2, 3, 4, 5, 6});
    const Frame cb = make_plane(3, 1, {100, 101, 156}), cr = make_plane(3, 1, {155, 156, 100});
    const Frame wide = make_frame(CM_FORMAT_YCBCR, 6, 1, 3, 8);
    EXPECT_EQ(CM_YCbCr422to444(Y, cb, cr, wide), 0);
    // The last column's right neighbour is reflected to chroma column 1.
    EXPECT_EQ(samples_of(*wide),
              (Samples{1, 100, 155, 2, 100, 156, 3, 101, 156, 4, 129, 128, 5, 156, 100, 6, 129, 128}));

    // 4:2:0: copies, averages of two in either direction and of four.
    const Frame small = make_plane(4, 4, {});
    const Frame cb4 = make_plane(2, 2, {100, 120, 110, 141}), cr4 = make_plane(2, 2, {200, 220, 210, 241});
    const Frame dst = make_frame(CM_FORMAT_YCBCR, 4, 4, 3, 8);
    EXPECT_EQ(CM_YCbCr420to444(small, cb4, cr4, dst), 0);
    EXPECT_EQ(samples_of(*Frame(CM_CopySingleCh(dst, 1))),
              (Samples{100, 110, 120, 110, 105, 118, 131, 118, 110, 125, 141, 125, 105, 118, 131, 118}));
    EXPECT_EQ(samples_of(*Frame(CM_CopySingleCh(dst, 2))),
              (Samples{200, 210, 220, 210, 205, 218, 231, 218, 210, 226, 241, 226, 205, 218, 231, 218}));
    const Frame nine = make_plane(3, 3, {100, 104, 112, 120, 128, 144, 160, 172, 196});
    const Frame large = make_frame(CM_FORMAT_YCBCR, 6, 6, 3, 8);
    CM_YCbCr420to444(make_plane(6, 6, {}), nine, nine, large);
    const Frame cb6(CM_CopySingleCh(large, 1));
    EXPECT_EQ((Samples{cb6->data[3], cb6->data[6 * 3], cb6->data[6 * 3 + 3]}), (Samples{108, 140, 160}));
    const Frame above = make_plane(2, 2, {128, 128, 128, 130});
    for (const int depth : {8, 10, 33}) {
        small->depth = depth;
        CM_YCbCr420to444(small, above, cr4, dst);
        // 514 / 4 is 128.5: away from 128, or from 512, or (2^33 counting as 2) from 1.
        EXPECT_EQ(dst->data[3 * 5 + 1], depth == 10 ? 128 : 129) << depth;
    }
}

// ---- Files --------------------------------------------------------------------------------------

using Files = FileTest;

std::string header(const std::string& magic, const char* size, const std::string& max) {
    return magic + "\n# Created by KORVEN DPU Model\n" + size + "\n" + max + "\n";
}

TEST_F(Files, ReadImages) {
    const struct {
        const char* max;
        std::string bytes;  // three samples
        int depth;
        const char *grey, *colour;  // colour is masked with the max value
    } cases[] = {
        {"1", "", 0, "0 0 0", "0 0 0"},
        {"200", "\x01\xff\x80", 8, "1 255 128", "0 200 128"},
        {"257", "\x01\x02\xff\xff\0\x01"s, 9, "258 65535 1", "256 257 1"},
        {"131071", "\1\2\3\xff\xff\xff\0\0\4"s, 17, "66051 16777215 4", "66051 131071 4"},
        {"4294967295", "\1\2\3\4\xff\xff\xff\xfe\0\0\0\5"s, 32, "16909060 -2 5", "16909060 -2 5"},
        // Cut off within a sample: missing bytes are -1; a pixel is left where the file ends.
        {"1023", "\x01", 10, "255 -257 -257", "255 0 0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.max);
        spill("g", "P5 extras\n#1\n#2\n3 1\n"s + c.max + "\n" + c.bytes);
        spill("c", "P6\n1 1\n"s + c.max + " ignored\n" + c.bytes);
        const std::string depth = ", depth " + std::to_string(c.depth) + ": ";
        const std::string log = errors_of([&] {
            EXPECT_EQ(show(CM_ReadPPM5("g", 4)), "type 4, format 2, 3x1x1" + depth + c.grey);
            EXPECT_EQ(show(CM_ReadPPM("c", 6)), "type 6, format 0, 1x1x3" + depth + c.colour);
        });
        for (const char* const line : {"325", "410"})
            EXPECT_NE(log.find("common:"s + line + ": Color depth"), log.npos) << log;
    }
    // Pixels after the end are visited, each as far as its first channel; one record for the file.
    spill("c", "P6\n3 1\n255\n\1\2\3\4");
    const std::string log = errors_of([] {
        EXPECT_EQ(show(CM_ReadPPM("c", 0)), "type 0, format 0, 3x1x3, depth 8: 1 2 3 4 255 0 255 0 0");
    });
    EXPECT_NE(log.find("5 of 9 samples are missing\n"), log.npos) << log;

    const Frame f = make_plane(3, 3, Samples(9, 7), 5);
    for (const char* const size : {"0 1", "1 x", "4 1", "1 4", "2147483647 1000000"}) {
        spill("f", "P5\n"s + size + "\n255\n1234");
        const std::string error = errors_of([&] { EXPECT_EQ(CM_ReadPPM5_safe("f", f), -1) << size; });
        EXPECT_NE(error.find("Invalid image size (error loading 'f')\n"), error.npos) << error;
    }
    EXPECT_EQ(CM_ReadPPM5_safe(spill("f", "P5\n2 2\n1023\n\1\2\1\3\1\4\1\5"), f), 0);
    EXPECT_EQ(samples_of(*f), (Samples{258, 259, 7, 260, 261, 7, 7, 7, 7}));
    EXPECT_TRUE(f->width == 3 && f->height == 3 && f->depth == 5);
}

TEST_F(Files, WriteImages) {
    const Frame pair = make_frame(CM_FORMAT_SINGLE, 2, 1, 2, 8, {0x12345678, 9, -2, 9});
    const struct {
        int depth;
        size_t bytes;
        const char *grey_max, *colour_max;
        std::string clipped;  // the first sample; the second is 0
    } cases[] = {
        {-3, 1, "536870911", "536870911", ""},
        {1, 1, "1", "1", "\1"},
        {8, 1, "255", "255", "\xff"},
        {9, 2, "511", "511", "\1\xff"},
        {16, 2, "65535", "65535", "\xff\xff"},
        {17, 3, "131071", "131071", "\1\xff\xff"},
        {24, 3, "16777215", "16777215", "\xff\xff\xff"},
        {25, 4, "33554431", "33554431", "\1\xff\xff\xff"},
        {31, 4, "2147483647", "2147483647", "\x12\x34\x56\x78"},
        {32, 4, "4294967295", "0", "\0\0\0\0"s},
        {33, 4, "4294967295", "1", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.depth);
        const std::string a = "\x12\x34\x56\x78"s.substr(4 - c.bytes),
                          b = "\xff\xff\xff\xfe"s.substr(4 - c.bytes);
        pair->depth = c.depth;
        CM_WritePPM5("g", pair);
        EXPECT_EQ(slurp("g"), header("P5", "2 1", c.grey_max) + a + b);
        CM_WritePPM("c", pair);
        EXPECT_EQ(slurp("c"), header("P6", "2 1", c.colour_max) + a + a + a + b + b + b);
        if (c.clipped.empty()) continue;
        const std::string zeros(c.bytes, '\0');
        CM_WritePPM5_CLIP("g", pair, c.depth);
        EXPECT_EQ(slurp("g"), header("P5", "2 1", c.colour_max) + c.clipped + zeros);
        CM_WritePPM_CLIP("c", pair, c.depth);
        EXPECT_EQ(slurp("c"), header("P6", "2 1", c.colour_max) + c.clipped + c.clipped + c.clipped + zeros +
                                  zeros + zeros);
    }
    const Frame colour = make_frame(CM_FORMAT_RGB, 1, 2, 3, 8, {1, 2, 3, 4, 300, -6});
    CM_WritePPM("c", colour);
    EXPECT_EQ(slurp("c"), header("P6", "1 2", "255") + "\1\2\3\4\x2c\xfa");
    CM_WritePPM_CLIP("c", colour, 8);
    EXPECT_EQ(slurp("c"), header("P6", "1 2", "255") + "\1\2\3\4\xff\0"s);
}

TEST_F(Files, Raw) {
    // Eight planes' worth of rows of 2 samples: 0x0100, 0x0302, 0x0504, ... and half a sample more.
    std::string bytes;
    for (char b = 0; b < 31; ++b) bytes += b;
    spill("in.raw", bytes);
    const struct {
        int k, layout;
        Samples expected;
        std::string missing;
    } cases[] = {
        {1, 0, {0x0504, 0x0706, 0x0d0c, 0x0f0e}, ""},      {1, 2, {0x0908, 0x0b0a, 0x1514, 0x1716}, ""},
        {4, 1, {0x1110, 0x1312, 0x1d1c, 0x1e - 256}, "1"},  // a missing byte is -1
        {-3, 2, {-257, -257, 0x0504, 0x0706}, "2"},         // before the file
        {INT_MAX, 0, {-257, -257, -257, -257}, "4"},
    };
    for (const auto& c : cases) {
        const std::string log = errors_of([&] {
            const Frame f(CM_ReadRAW("in.raw", 3, c.k, c.layout, 2, 2, 14));
            EXPECT_EQ(samples_of(*f), c.expected);
            EXPECT_TRUE(f->file_type == 3 && f->format == 3 && f->channels == 1 && f->depth == 14);
        });
        const bool reported = log.find(c.missing + " of 4 samples are missing\n") != log.npos;
        EXPECT_TRUE(c.missing.empty() ? log.empty() : reported) << c.k << ": " << log;
    }
    CM_WriteRAW("out.raw", make_frame(CM_FORMAT_RAW_RGB, 2, 1, 2, 16, {0x12345, 7, -2, 8}));
    EXPECT_EQ(slurp("out.raw"), "\x45\x23\xfe\xff");
}

TEST_F(Files, TextHistogramAndProbe) {
    const Frame f = make_frame(CM_FORMAT_YCBCR, 3, 2, 2, 8, {0, 1, 171, 2, -1, 3, 16, 4, 4096, 5, 15, 6});
    CM_WriteTXT("t", f);
    EXPECT_EQ(slurp("t"), "0 ab ffffffff\n10 1000 f\n");
    CM_WriteTXT_channel("t", f, 1);
    EXPECT_EQ(slurp("t"), "1 2 3\n4 5 6\n");
    testing::internal::CaptureStdout();
    print_point_data_log(0, 1, f, 1, "Yin");
    print_point_data_log(3, -1, f, 0, "Y");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "x = -1, y = 1, Yin = 5\nx = 0, y = 1, Yin = 4\nx = 1, y = 1, Yin = 5\n"
              "x = 2, y = -1, Y = 15\nx = 3, y = -1, Y = 4096\nx = 4, y = -1, Y = 16\n");

    HIST* const hist = CM_NewHIST(2, 9, 8);
    EXPECT_TRUE(hist->bins == 2 && hist->second == 9 && hist->channels == 8 && hist->data[15] == 0);
    for (uint32_t i = 0; i < 16; ++i) hist->data[i] = 0xabc0 + i;
    const std::string log = errors_of([&] { CM_WriteHIST("h", hist); });
    CM_DelHIST(hist);
    EXPECT_NE(log.find("FATAL common:1656: [CM_WriteHIST] file_name :h_IR\n"), log.npos);
    const char* const names[] = {"h_R", "h_G", "h_B", "h_V", "h_Y", "h_IR"};
    for (int c = 0; c < 6; ++c)
        EXPECT_EQ(slurp(names[c]), "0000abc"s + "012345"[c] + "\n0000abc" + "89abcd"[c] + "\n");
    EXPECT_EQ(slurp("h_"), "0000abc7\n0000abcf\n") << "the eighth channel over the seventh";
}

TEST_F(Files, AreLockedAndClosed) {
    FILE* f = CM_Fopen(spill("f", "text"), "rb");
    std::fputc('x', f);
    EXPECT_EQ(CM_Fclose(f), EOF) << "not written";
    EXPECT_EQ(slurp("f"), "text");

    const int unnamed = open(".", O_TMPFILE | O_WRONLY, 0600);
    const bool can = unnamed >= 0;
    close(unnamed);
    for (const std::string& path : {"new"s, (dir_ / "newer").string()}) {
        f = CM_Fopen(path.c_str(), "wb");
        const int fd = fileno(f), other = open(path.c_str(), O_RDONLY);
        const std::string link = "/proc/self/fd/" + std::to_string(fd);
        const std::string was = std::filesystem::read_symlink(link);
        EXPECT_TRUE(!can || was.find("(deleted)") != was.npos)
            << "made unnamed, linked under the lock: " << was;
        EXPECT_NE(flock(other, LOCK_EX | LOCK_NB), 0);
        CM_DelFILE(f);
        EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
        close(other);
    }
    for (const char* const mode : {"rb", "r+b", "ab", "wb"}) {
        const int held = open(spill("f", "old"), O_RDONLY);
        flock(held, LOCK_EX);
        std::thread holder([&] {
            usleep(100000);
            std::filesystem::rename("f", "done");
            spill("f", "");
            close(held);
        });
        f = CM_Fopen("f", mode);
        std::fputs("new", f);
        CM_DelFILE(f);
        holder.join();
        EXPECT_EQ(slurp("done") + "," + slurp("f"), mode == "rb"s ? "old," : "old,new") << mode;
    }
    CM_DelFILE(nullptr);
}

// What cannot be done ends the program.
TEST_F(Files, FatalCalls) {
    const Frame rgb = make_frame(CM_FORMAT_RGB, 1, 1, 3, 8), ycc = make_frame(CM_FORMAT_YCBCR, 1, 1, 3, 8);
    const Frame y = make_plane(1, 1, {}), none = make_plane(0, 1, {});
    // Smaller than a stream's buffer and larger: the failing call is the close, or a write.
    const Frame raw = make_frame(CM_FORMAT_RAW_RGB, 4, 2, 1, 16),
                large = make_frame(CM_FORMAT_RAW_RGB, 4, 3000, 1, 16);
    const std::string full = "^Unable to write file '/dev/full': No space";
    const std::string clip = "CM_WritePPM5_CLIP_target_depth error, target depth = ";
    spill("p5", "P5\n1 1\n255\n1");
    const struct {
        std::function<void()> call;
        int status;
        std::string message;
    } cases[] = {
        {[] { CM_NewFRAME(0, 0, UINT_MAX, UINT_MAX, 3, 8); }, 1, "^Unable to allocate memory\n"},
        {[] { CM_NewHIST(UINT_MAX, 0, UINT_MAX); }, 1, "^\\(NewHIST\\) Unable to allocate data memory\n"},
        {[&] { CM_CopySingleCh(rgb, 3); }, 255, "no channel 3 in a frame of 3"},
        {[&] { CM_WriteTXT_channel("t", y, 1); }, 255, "no channel 1 in a frame of 1"},
        {[&] { CM_RGB2YCbCr(ycc); }, 255, "FATAL common:893: RGB2YCbCr format error"},
        {[&] { CM_RGB2YCbCr_safe(ycc, ycc); }, 255, "FATAL common:931: RGB2YCbCr format error"},
        {[&] { CM_RGB2YCbCr_safe(rgb, rgb); }, 255, "FATAL common:932: RGB2YCbCr format error"},
        {[&] { CM_YCbCr2RGB(rgb); }, 255, "FATAL common:1078: YCbCr2RGB format error"},
        {[&] { CM_YCbCr2RGB_safe(rgb, ycc); }, 255, "FATAL common:1111: YCbCr2RGB format error"},
        {[&] { CM_YCbCr2RGB_safe(ycc, y); }, 255, "FATAL common:1111: YCbCr2RGB format error"},
        {[&] { CM_YCbCr444to422(ycc, y, y, none); }, 255, "CM_YCbCr444to422: a chroma plane is 0x1"},
        {[&] { CM_YCbCr420to444(y, y, y, y); }, 255, "a frame of 3 channels is needed, not of 1"},
        {[] { CM_ReadPPM("p5", 0); }, 1,
         "^Invalid image format \\(must be 'P6'\\) \\(error loading 'p5'\\)\n$"},
        {[&] { CM_WriteRAW("none", rgb); }, 1, "FATAL common:1332: File format != RAW_RGB"},
        {[&] { CM_WritePPM_CLIP("c0", rgb, 0); }, 1, "ERROR common:629: " + clip + "'0'\n$"},
        {[&] { CM_WritePPM5_CLIP("g33", rgb, 33); }, 1, "ERROR common:771: " + clip + "'33'\n$"},
        {[&] { CM_WritePPM("/dev/full", rgb); }, 1, full},
        {[&] { CM_WriteRAW("/dev/full", raw); }, 1, full},
        {[&] { CM_WriteRAW("/dev/full", large); }, 1, full},
        {[&] { CM_WriteTXT("/dev/full", raw); }, 1, full},
        {[&] { CM_WriteTXT("/dev/full", large); }, 1, full},
    };
    for (const auto& c : cases) EXPECT_EXIT(c.call(), testing::ExitedWithCode(c.status), c.message);
    EXPECT_FALSE(std::filesystem::exists("none"));
    // A wrong depth is found when the size has been written.
    EXPECT_EQ(slurp("c0"), "P6\n# Created by KORVEN DPU Model\n1 1\n");
    EXPECT_EQ(slurp("g33"), "P5\n# Created by KORVEN DPU Model\n1 1\n");
}

// Planes that one region of memory does not hold lie in another; sizes around what is rounded.
TEST(PlaneMemory, HoldsWhatWasAskedFor) {
    cm::PlaneMemory memory;
    constexpr size_t kSizes[] = {20 << 20, (20 << 20) + 1, (12 << 20) - 1, 1, 40 << 20};
    std::vector<cm::Bytes> planes;
    for (const size_t size : kSizes) {
        planes.push_back(memory.take(size));
        planes.back()[0] = planes.back()[size - 1] = static_cast<uint8_t>(planes.size());
    }
    for (size_t i = 0; i < planes.size(); ++i) {
        EXPECT_EQ(planes[i][0], i + 1);
        EXPECT_EQ(planes[i][kSizes[i] - 1], i + 1);
    }
}

}  // namespace
