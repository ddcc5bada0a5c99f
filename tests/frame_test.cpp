// Frame utilities, and PGM/PPM files against their literal bytes.
#include <climits>

#include "test_frames.h"

namespace {

using namespace std::string_literals;

std::string header(const std::string& magic, const char* size, const std::string& max) {
    return magic + "\n# Created by KORVEN DPU Model\n" + size + "\n" + max + "\n";
}

// ---- Frames -------------------------------------------------------------------------------------

TEST(Frames, CreateCopyAndMerge) {
    const Frame src = make_frame(CM_FORMAT_YCBCR, 1, 2, 3, 10, {1, 2, 3, 4, 5, 6});
    const Frame copy(CM_CopyFRAME(src.get()));
    EXPECT_TRUE(copy->file_type == 5 && copy->format == 1 && copy->depth == 10 && copy->height == 2);
    EXPECT_EQ(samples_of(*copy), samples_of(*src));
    const Frame single(CM_CopySingleCh(src.get(), 1));
    EXPECT_TRUE(single->file_type == 5 && single->format == 2 && single->depth == 10);
    EXPECT_EQ(samples_of(*single), (Samples{2, 5}));
    EXPECT_EXIT(CM_CopySingleCh(src.get(), 3), testing::ExitedWithCode(255), "no channel 3 in a frame of 3");

    const Frame larger = make_frame(CM_FORMAT_YCBCR, 2, 3, 3, 8);
    CM_CopyFrame(src.get(), larger.get());
    EXPECT_EQ(samples_of(*larger), (Samples{1, 2, 3, 0, 0, 0, 4, 5, 6, 0, 0, 0, 0, 0, 0, 0, 0, 0}));

    const Frame c1 = make_plane(1, 2, {20, 21}), c2 = make_plane(1, 2, {30, 31});
    EXPECT_EQ(CM_Merge3Ch(single.get(), c1.get(), c2.get(), copy.get()), copy.get());
    EXPECT_EQ(samples_of(*copy), (Samples{2, 20, 30, 5, 21, 31}));
    EXPECT_EQ(samples_of(*Frame_Set_Constant(copy.get(), -9)), Samples(6, -9));
    CM_DelFRAME(nullptr);
    EXPECT_EXIT(CM_NewFRAME(0, 0, UINT_MAX, UINT_MAX, 3, 8), testing::ExitedWithCode(1),
                "^Unable to allocate memory\n");
}

TEST(Frames, OneToThree) {
    const Frame pair = make_frame(CM_FORMAT_SINGLE, 2, 1, 2, 8, {1, 2, 3, 4});
    const Frame dst = make_frame(CM_FORMAT_YCBCR, 2, 1, 3, 8);
    testing::internal::CaptureStderr();
    CM_CopyFrame_1to3(pair.get(), dst.get());
    CM_CopyFrame_1to3(dst.get(), pair.get());
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("FATAL common:222: CM_CopytFrame_1to3 error, src channel != 1\n"), log.npos) << log;
    EXPECT_NE(log.find("FATAL common:226: CM_CopyFrame_1to3 error, dst channel != 3\n"), log.npos) << log;
    EXPECT_EQ(samples_of(*dst), (Samples{1, 1, 1, 3, 3, 3})) << "copied all the same";
    EXPECT_EQ(samples_of(*pair), (Samples{1, 2, 3, 4})) << "not copied";
}

TEST(Frames, Shift) {
    const Frame src = make_plane(3, 1, {-5, 7, INT_MIN});
    struct {
        int n, depth;
        Samples expected;
    } const cases[] = {{0, 8, {-5, 7, INT_MIN}},
                       {2, 6, {-2, 1, INT_MIN / 4}},
                       {34, -26, {-2, 1, INT_MIN / 4}},
                       {-1, 9, {-1, 0, -1}}};
    for (const auto& c : cases) {
        const Frame out(CM_Frame_Shift(src.get(), c.n));
        EXPECT_EQ(out->depth, c.depth);
        EXPECT_EQ(samples_of(*out), c.expected) << c.n;
    }
}

TEST(Frames, Fields) {
    const Frame src = make_plane(2, 5, {0, 1, 10, 11, 20, 21, 30, 31, 40, 41}, 9);
    const Frame even(CM_GetField(src.get(), 0)), odd(CM_GetField(src.get(), 7));
    EXPECT_TRUE(even->file_type == 0 && odd->file_type == 7 && odd->depth == 9);
    EXPECT_EQ(samples_of(*even), (Samples{0, 1, 20, 21})) << "the fifth row is dropped";
    EXPECT_EQ(samples_of(*odd), (Samples{10, 11, 30, 31}));
    CM_SetField(src.get(), even.get(), -1);
    EXPECT_EQ(samples_of(*src), (Samples{0, 1, 0, 1, 20, 21, 20, 21, 40, 41}));
    CM_SetField(src.get(), odd.get(), 0);
    EXPECT_EQ(samples_of(*src), (Samples{10, 11, 0, 1, 30, 31, 20, 21, 40, 41}));
}

// ---- Files --------------------------------------------------------------------------------------

using PnmFiles = FileTest;

TEST_F(PnmFiles, Read) {
    struct {
        const char* max;
        std::string bytes;  // three samples
        int depth;
        Samples grey, colour;  // colour is masked with the max value
    } const cases[] = {
        {"1", "", 0, {0, 0, 0}, {0, 0, 0}},
        {"200", "\x01\xff\x80", 8, {1, 255, 128}, {0, 200, 128}},
        {"256", "\x01\xff\x80", 8, {1, 255, 128}, {0, 0, 0}},
        {"257", "\x01\x02\xff\xff\0\x01"s, 9, {258, 65535, 1}, {256, 257, 1}},
        {"65536", "\x01\x02\xff\xff\0\x01"s, 16, {258, 65535, 1}, {0, 0, 0}},
        {"131071", "\1\2\3\xff\xff\xff\0\0\4"s, 17, {0x10203, 0xffffff, 4}, {0x10203, 131071, 4}},
        {"4294967295", "\1\2\3\4\xff\xff\xff\xfe\0\0\0\5"s, 32, {0x1020304, -2, 5}, {0x1020304, -2, 5}},
        // Cut off within a sample: missing bytes are -1; a pixel is left where the file ends.
        {"1023", "\x01", 10, {256 - 1, -257, -257}, {255, 0, 0}},
        {"255", "\x07", 8, {7, -1, -1}, {7, 255, 0}},
        {"255", "\x07\x08", 8, {7, 8, -1}, {7, 8, 255}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.max);
        const std::string grey_rest = " extras\n#1\n#2\n3 1\n"s + c.max + "\n" + c.bytes;
        testing::internal::CaptureStderr();
        const Frame grey(CM_ReadPPM5(spill("g", "P5" + grey_rest).c_str(), 4));
        const std::string colour_file = "P6\n1 1\n"s + c.max + " ignored\n" + c.bytes;
        const Frame colour(CM_ReadPPM(spill("c", colour_file).c_str(), 6));
        testing::internal::GetCapturedStderr();
        EXPECT_TRUE(grey->file_type == 4 && grey->format == 2 && grey->channels == 1);
        EXPECT_TRUE(colour->file_type == 6 && colour->format == 0 && colour->channels == 3);
        EXPECT_EQ(grey->depth, c.depth);
        EXPECT_EQ(colour->depth, c.depth);
        EXPECT_EQ(samples_of(*grey), c.grey);
        EXPECT_EQ(samples_of(*colour), c.colour);
    }
    // Pixels after the end are visited, each as far as its first channel; one record for the file.
    testing::internal::CaptureStderr();
    const Frame cut(CM_ReadPPM(spill("c", "P6\n3 1\n255\n\1\2\3\4").c_str(), 0));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(samples_of(*cut), (Samples{1, 2, 3, 4, 255, 0, 255, 0, 0}));
    EXPECT_NE(log.find("DEBUG common:325: Color depth (8) max_rgb:(255)\n"), log.npos) << log;
    EXPECT_NE(log.find("5 of 9 samples are missing\n"), log.npos) << log;
    EXPECT_EXIT(CM_ReadPPM(spill("c", "P5\n1 1\n255\n1").c_str(), 0), testing::ExitedWithCode(1),
                "^Invalid image format \\(must be 'P6'\\) \\(error loading '.*/c'\\)\n$");
}

TEST_F(PnmFiles, ReadIntoAFrame) {
    const Frame f = make_plane(3, 3, Samples(9, 7), 5);
    struct {
        const char *bytes, *message;
    } const refused[] = {{"", "/f: "},
                         {"P6\n1 1\n255\n1", "Invalid image format (must be 'P5') (error loading '"},
                         {"P5\n1 x\n255\n1", "Invalid image size (error loading '"},
                         {"P5\n4 1\n255\n1234", "Invalid image size (error loading '"},
                         {"P5\n1 4\n255\n1234", "Invalid image size (error loading '"},
                         {"P5\n2147483647 1000000\n255\nab", "Invalid image size (error loading '"},
                         {"P5\n1 1\n0\n1", "Invalid max_rgb (error loading '"}};
    for (const auto& c : refused) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(CM_ReadPPM5_safe(spill("f", c.bytes).c_str(), f.get()), -1) << c.bytes;
        const std::string err = testing::internal::GetCapturedStderr();
        EXPECT_NE(err.find(c.message), err.npos) << err;
    }
    EXPECT_EQ(samples_of(*f), Samples(9, 7));
    EXPECT_EQ(CM_ReadPPM5_safe(spill("f", "P5\n2 2\n1023\n\1\2\1\3\1\4\1\5").c_str(), f.get()), 0);
    EXPECT_EQ(samples_of(*f), (Samples{258, 259, 7, 260, 261, 7, 7, 7, 7}));
    EXPECT_TRUE(f->width == 3 && f->height == 3 && f->depth == 5);
}

TEST_F(PnmFiles, Write) {
    const Frame pair = make_frame(CM_FORMAT_SINGLE, 2, 1, 2, 8, {0x12345678, 9, -2, 9});
    struct {
        int depth, bytes;
        const char *grey_max, *colour_max;
    } const cases[] = {
        {-3, 1, "536870911", "536870911"},
        {0, 1, "0", "0"},
        {1, 1, "1", "1"},
        {8, 1, "255", "255"},
        {9, 2, "511", "511"},
        {16, 2, "65535", "65535"},
        {17, 3, "131071", "131071"},
        {24, 3, "16777215", "16777215"},
        {25, 4, "33554431", "33554431"},
        {31, 4, "2147483647", "2147483647"},
        {32, 4, "4294967295", "0"},
        {33, 4, "4294967295", "1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.depth);
        const size_t drop = 4 - static_cast<size_t>(c.bytes);
        const std::string a = "\x12\x34\x56\x78"s.substr(drop), b = "\xff\xff\xff\xfe"s.substr(drop);
        pair->depth = c.depth;
        CM_WritePPM5(path("g").c_str(), pair.get());
        EXPECT_EQ(slurp("g"), header("P5", "2 1", c.grey_max) + a + b);
        CM_WritePPM(path("c").c_str(), pair.get());
        EXPECT_EQ(slurp("c"), header("P6", "2 1", c.colour_max) + a + a + a + b + b + b);
    }
    const Frame colour = make_frame(CM_FORMAT_RGB, 1, 2, 3, 8, {1, 2, 3, 4, 5, 256 + 6});
    CM_WritePPM(path("c").c_str(), colour.get());
    EXPECT_EQ(slurp("c"), header("P6", "1 2", "255") + "\1\2\3\4\5\6");
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP();
    EXPECT_EXIT(CM_WritePPM("/dev/full", colour.get()), testing::ExitedWithCode(1),
                "^Unable to write file '/dev/full': No space");
}

TEST_F(PnmFiles, WriteClipped) {
    const Frame f = make_frame(CM_FORMAT_RGB, 1, 1, 3, 8, {300, -5, INT_MAX});
    struct {
        int depth;
        const char* max;
        std::string first, last;  // the middle one is 0
    } const cases[] = {{1, "1", "\1", "\1"},
                       {8, "255", "\xff", "\xff"},
                       {9, "511", "\1\x2c", "\1\xff"},
                       {17, "131071", "\0\1\x2c"s, "\1\xff\xff"},
                       {25, "33554431", "\0\0\1\x2c"s, "\1\xff\xff\xff"},
                       {31, "2147483647", "\0\0\1\x2c"s, "\x7f\xff\xff\xff"},
                       {32, "0", "\0\0\0\0"s, "\0\0\0\0"s}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.depth);
        CM_WritePPM_CLIP(path("c").c_str(), f.get(), c.depth);
        EXPECT_EQ(slurp("c"), header("P6", "1 1", c.max) + c.first + std::string(c.first.size(), 0) + c.last);
        CM_WritePPM5_CLIP(path("g").c_str(), f.get(), c.depth);
        EXPECT_EQ(slurp("g"), header("P5", "1 1", c.max) + c.first);
    }
    // A wrong depth is found when the size has been written.
    for (const int depth : {0, 33}) {
        const std::string text =
            "CM_WritePPM5_CLIP_target_depth error, target depth = '" + std::to_string(depth) + "'\n$";
        const auto ended = testing::ExitedWithCode(1);
        EXPECT_EXIT(CM_WritePPM_CLIP(path("c").c_str(), f.get(), depth), ended, "ERROR common:629: " + text);
        EXPECT_EXIT(CM_WritePPM5_CLIP(path("g").c_str(), f.get(), depth), ended, "ERROR common:771: " + text);
        EXPECT_EQ(slurp("c"), "P6\n# Created by KORVEN DPU Model\n1 1\n");
        EXPECT_EQ(slurp("g"), "P5\n# Created by KORVEN DPU Model\n1 1\n");
    }
}

}  // namespace
