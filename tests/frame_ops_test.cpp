// Colour conversion, chroma resampling and side files: worked values, literal bytes, fatal cases.
#include <climits>

#include "test_frames.h"

namespace {

namespace fs = std::filesystem;

// ---- Colour -------------------------------------------------------------------------------------

TEST(Colour, Forward) {
    constexpr int kMin = INT_MIN;
    struct {
        int depth;
        Samples rgb, ycbcr, unclamped;
    } const cases[] = {
        {8, {200, 200, 200}, {200, 128, 128}, {200, 128, 128}},
        {10, {1023, 1023, 1023}, {1023, 512, 512}, {1023, 512, 512}},
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
        SCOPED_TRACE(testing::PrintToString(c.rgb));
        const Frame src = make_frame(CM_FORMAT_RGB, 1, 1, 3, c.depth, c.rgb);
        const Frame dst(CM_RGB2YCbCr(src.get()));
        EXPECT_EQ(samples_of(*dst), c.ycbcr);
        EXPECT_TRUE(dst->file_type == 5 && dst->format == 1 && dst->depth == c.depth);
        EXPECT_EQ(CM_RGB2YCbCr_safe(src.get(), dst.get()), dst.get());
        EXPECT_EQ(samples_of(*dst), c.unclamped);
    }
}

TEST(Colour, Inverse) {
    struct {
        Samples ycbcr, rgb;
    } const cases[] = {
        {{255, 128, 128}, {255, 255, 255}},
        {{100, 130, 131}, {104, 97, 103}},   // 104.113, 97.2324, 103.464
        {{100, 128, 123}, {93, 103, 100}},   // 93.145, 103.491
        {{100, 28, 228}, {237, 64, 0}},      // 237.1, 63.83, -73.2
        {{900, 512, 512}, {255, 255, 255}},  // not 10-bit
        {{302, 606, 43}, {185, 201, 255}},   // 200.4999998 in single precision is 200.5
        {{-1000, INT_MAX, INT_MIN}, {0, 255, 255}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.ycbcr));
        const Frame src = make_frame(CM_FORMAT_YCBCR, 1, 1, 3, 10, c.ycbcr);
        const Frame dst(CM_YCbCr2RGB(src.get()));
        EXPECT_TRUE(dst->file_type == 5 && dst->format == 0 && dst->depth == 10);
        EXPECT_EQ(samples_of(*dst), c.rgb);
    }
    // The caller's frame may be smaller: columns and rows beyond it are reflected, the last one stays.
    const Frame src = make_frame(CM_FORMAT_YCBCR, 3, 1, 3, 8, {10, 128, 128, 20, 128, 128, 30, 128, 128});
    const Frame dst = make_frame(CM_FORMAT_SINGLE, 2, 1, 3, 8);
    CM_YCbCr2RGB_safe(src.get(), dst.get());
    EXPECT_EQ(samples_of(*dst), (Samples{30, 30, 30, 20, 20, 20}));
}

TEST(Colour, WrongFormatEnds) {
    const Frame rgb_frame = make_frame(CM_FORMAT_RGB, 1, 1, 3, 8);
    const Frame ycc_frame = make_frame(CM_FORMAT_YCBCR, 1, 1, 3, 8);
    FRAME *const rgb = rgb_frame.get(), *const ycc = ycc_frame.get();
    const auto ended = testing::ExitedWithCode(255);
    EXPECT_EXIT(CM_RGB2YCbCr(ycc), ended, "FATAL common:893: RGB2YCbCr format error");
    EXPECT_EXIT(CM_RGB2YCbCr_safe(ycc, ycc), ended, "FATAL common:931: RGB2YCbCr format error");
    EXPECT_EXIT(CM_RGB2YCbCr_safe(rgb, rgb), ended, "FATAL common:932: RGB2YCbCr format error");
    EXPECT_EXIT(CM_YCbCr2RGB(rgb), ended, "FATAL common:1078: YCbCr2RGB format error");
    EXPECT_EXIT(CM_YCbCr2RGB_safe(rgb, ycc), ended, "FATAL common:1111: YCbCr2RGB format error");
}

// ---- Chroma resampling --------------------------------------------------------------------------

TEST(Chroma, Down) {
    Samples pixels;  // Y = 10y + x, Cb = 100 + Y, Cr = 200 + Y
    for (int i = 0; i < 45; ++i) pixels.push_back(i % 3 * 100 + i / 15 * 10 + i / 3 % 5);
    const Frame src = make_frame(CM_FORMAT_YCBCR, 5, 3, 3, 8, pixels);
    const Frame Y = make_plane(5, 3, {});
    const Frame cb422 = make_plane(3, 3, {}), cr422 = make_plane(3, 3, {});
    EXPECT_EQ(CM_YCbCr444to422(src.get(), Y.get(), cb422.get(), cr422.get()), 0);
    EXPECT_EQ(samples_of(*Y), (Samples{0, 1, 2, 3, 4, 10, 11, 12, 13, 14, 20, 21, 22, 23, 24}));
    EXPECT_EQ(samples_of(*cb422), (Samples{100, 102, 104, 110, 112, 114, 120, 122, 124}));
    EXPECT_EQ(samples_of(*cr422), (Samples{200, 202, 204, 210, 212, 214, 220, 222, 224}));
    // Rounded down, the last even column (row) is reflected onto the first of the two.
    const Frame cb420 = make_plane(2, 1, {}), cr420 = make_plane(2, 2, {});
    EXPECT_EQ(CM_YCbCr444to420(src.get(), Y.get(), cb420.get(), cr420.get()), 0);
    EXPECT_EQ(samples_of(*cb420), (Samples{124, 122}));
    EXPECT_EQ(samples_of(*cr420), (Samples{204, 202, 224, 222}));
}

TEST(Chroma, Up) {
    const Frame Y = make_plane(6, 1, {1, 2, 3, 4, 5, 6});
    const Frame cb = make_plane(3, 1, {100, 101, 156}), cr = make_plane(3, 1, {155, 156, 100});
    const Frame wide = make_frame(CM_FORMAT_YCBCR, 6, 1, 3, 8);
    EXPECT_EQ(CM_YCbCr422to444(Y.get(), cb.get(), cr.get(), wide.get()), 0);
    // The last column's right neighbour is reflected to chroma column 1.
    EXPECT_EQ(samples_of(*wide),
              (Samples{1, 100, 155, 2, 100, 156, 3, 101, 156, 4, 129, 128, 5, 156, 100, 6, 129, 128}));

    // 4:2:0: copies, averages of two in either direction and of four.
    const Frame small = make_plane(4, 4, {});
    const Frame cb4 = make_plane(2, 2, {100, 120, 110, 141}), cr4 = make_plane(2, 2, {200, 220, 210, 241});
    const Frame dst = make_frame(CM_FORMAT_YCBCR, 4, 4, 3, 8);
    EXPECT_EQ(CM_YCbCr420to444(small.get(), cb4.get(), cr4.get(), dst.get()), 0);
    EXPECT_EQ(samples_of(*dst),
              (Samples{0,   100, 200, 0,   110, 210, 0,   120, 220, 0,   110, 210, 0,   105, 205, 0,
                       118, 218, 0,   131, 231, 0,   118, 218, 0,   110, 210, 0,   125, 226, 0,   141,
                       241, 0,   125, 226, 0,   105, 205, 0,   118, 218, 0,   131, 231, 0,   118, 218}));
    const Frame above = make_plane(2, 2, {128, 128, 128, 130});
    for (const int depth : {8, 10, 33}) {
        small->depth = depth;
        CM_YCbCr420to444(small.get(), above.get(), cr4.get(), dst.get());
        // 514 / 4 is 128.5: away from 128, or from 512, or (2^33 counting as 2) from 1.
        EXPECT_EQ(dst->data[3 * 5 + 1], depth == 10 ? 128 : 129) << depth;
    }
}

TEST(Chroma, UnusableFramesEnd) {
    const Frame pixel = make_frame(CM_FORMAT_YCBCR, 1, 1, 3, 8);
    const Frame y = make_plane(1, 1, {}), none = make_plane(0, 1, {});
    EXPECT_EXIT(CM_YCbCr444to422(pixel.get(), y.get(), y.get(), none.get()), testing::ExitedWithCode(255),
                "CM_YCbCr444to422: a chroma plane is 0x1");
    EXPECT_EXIT(CM_YCbCr420to444(y.get(), y.get(), y.get(), y.get()), testing::ExitedWithCode(255),
                "CM_YCbCr420to444: a frame of 3 channels is needed, not of 1");
}

// ---- Side files ---------------------------------------------------------------------------------

using SideFiles = FileTest;

TEST_F(SideFiles, RawBytes) {
    // Eight planes' worth of rows of 2 samples: 0x0100, 0x0302, 0x0504, ... and half a sample more.
    std::string bytes;
    for (char b = 0; b < 31; ++b) bytes += b;
    const std::string file = spill("in.raw", bytes);
    struct {
        int k, layout;
        Samples expected;
        int missing;
    } const cases[] = {
        {0, 0, {0x0100, 0x0302, 0x0908, 0x0b0a}, 0},     {1, 0, {0x0504, 0x0706, 0x0d0c, 0x0f0e}, 0},
        {1, 1, {0x0504, 0x0706, 0x1110, 0x1312}, 0},     {1, 2, {0x0908, 0x0b0a, 0x1514, 0x1716}, 0},
        {4, 1, {0x1110, 0x1312, 0x1d1c, 0x1e - 256}, 1},  // a missing byte is -1
        {-3, 2, {-257, -257, 0x0504, 0x0706}, 2},         // before the file
        {INT_MAX, 0, {-257, -257, -257, -257}, 4},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.k << " " << c.layout);
        testing::internal::CaptureStderr();
        const Frame f(CM_ReadRAW(file.c_str(), CM_FORMAT_RAW_RGB, c.k, c.layout, 2, 2, 14));
        const std::string log = testing::internal::GetCapturedStderr();
        const std::string report = std::to_string(c.missing) + " of 4 samples are missing\n";
        EXPECT_TRUE(c.missing == 0 ? log.empty() : log.find(report) != std::string::npos) << log;
        EXPECT_EQ(samples_of(*f), c.expected);
        EXPECT_TRUE(f->file_type == 3 && f->format == 3 && f->channels == 1 && f->depth == 14);
    }

    const Frame f = make_frame(CM_FORMAT_RAW_RGB, 2, 1, 2, 16, {0x12345, 7, -2, 8});
    CM_WriteRAW(path("out.raw").c_str(), f.get());
    EXPECT_EQ(slurp("out.raw"), "\x45\x23\xfe\xff");
    f->format = CM_FORMAT_SINGLE;
    EXPECT_EXIT(CM_WriteRAW(path("no.raw").c_str(), f.get()), testing::ExitedWithCode(1),
                "FATAL common:1332: File format != RAW_RGB");
    EXPECT_FALSE(fs::exists(path("no.raw")));
}

TEST_F(SideFiles, Text) {
    const Frame f = make_frame(CM_FORMAT_YCBCR, 3, 2, 2, 8, {0, 1, 171, 2, -1, 3, 16, 4, 4096, 5, 15, 6});
    CM_WriteTXT(path("t").c_str(), f.get());
    EXPECT_EQ(slurp("t"), "0 ab ffffffff\n10 1000 f\n");
    CM_WriteTXT_channel(path("t").c_str(), f.get(), 1);
    EXPECT_EQ(slurp("t"), "1 2 3\n4 5 6\n");
    EXPECT_EXIT(CM_WriteTXT_channel(path("t").c_str(), f.get(), 2), testing::ExitedWithCode(255),
                "no channel 2 in a frame of 2");
}

TEST_F(SideFiles, Histogram) {
    HIST* const hist = CM_NewHIST(2, 9, 8);
    EXPECT_TRUE(hist->bins == 2 && hist->second == 9 && hist->channels == 8 && hist->data[15] == 0);
    for (uint32_t i = 0; i < 16; ++i) hist->data[i] = 0xabc0 + i;
    testing::internal::CaptureStderr();
    CM_WriteHIST(path("h").c_str(), hist);
    const std::string log = testing::internal::GetCapturedStderr();
    CM_DelHIST(hist);
    EXPECT_NE(log.find("FATAL common:1656: [CM_WriteHIST] file_name :" + path("h_IR") + "\n"), log.npos);
    const char* const names[] = {"h_R", "h_G", "h_B", "h_V", "h_Y", "h_IR"};
    for (int c = 0; c < 6; ++c)
        EXPECT_EQ(slurp(names[c]), std::string("0000abc") + "012345"[c] + "\n0000abc" + "89abcd"[c] + "\n");
    EXPECT_EQ(slurp("h_"), "0000abc7\n0000abcf\n") << "the eighth channel over the seventh";
    EXPECT_EXIT(CM_NewHIST(UINT_MAX, 0, UINT_MAX), testing::ExitedWithCode(1),
                "^\\(NewHIST\\) Unable to allocate data memory\n");
}

TEST_F(SideFiles, FullDiskEnds) {
    if (!fs::exists("/dev/full")) GTEST_SKIP();
    // Larger than the stream's buffer and smaller: the failing call is a write, or the close.
    for (const uint32_t height : {2u, 3000u}) {
        const Frame f = make_frame(CM_FORMAT_RAW_RGB, 4, height, 1, 16);
        const auto ended = testing::ExitedWithCode(1);
        EXPECT_EXIT(CM_WriteRAW("/dev/full", f.get()), ended, "Unable to write file '/dev/full': No space");
        EXPECT_EXIT(CM_WriteTXT("/dev/full", f.get()), ended, "Unable to write file '/dev/full': No space");
    }
}

TEST_F(SideFiles, Probe) {
    const Frame f = make_plane(3, 2, {1, 2, 3, 4, 5, -6});
    testing::internal::CaptureStdout();
    print_point_data_log(0, 1, f.get(), 0, "Yin");
    print_point_data_log(3, -1, f.get(), 0, "Y");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "x = -1, y = 1, Yin = 5\nx = 0, y = 1, Yin = 4\nx = 1, y = 1, Yin = 5\n"
              "x = 2, y = -1, Y = -6\nx = 3, y = -1, Y = 5\nx = 4, y = -1, Y = 4\n");
}

}  // namespace
