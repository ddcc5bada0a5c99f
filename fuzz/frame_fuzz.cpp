// The whole path from the bytes of all files to the output: the pipelines, which run line by line on
// packed planes or frames, against the blocks' own frame functions called one after the other.
//
// An input tells how the files are made (sizes, depths, registers, what fills the planes), so that most
// of them get past the readers.
#include <cstring>
#include <memory>

#include "ee_hw.h"
#include "ee_reg_table.h"
#include "fixed_run.h"
#include "fuzz.h"
#include "owned_frame.h"
#include "pre_ee_hw.h"
#include "row_targets.h"

namespace {

using cm::reg_value;

using Frame = cm::OwnedFrame;

enum Mode { kRgb, kPlanes, kClassic, kModes };
enum Plane { kY, kCb, kCr, kImage, kMotion, kFusion, kInputs };

struct Size {
    uint32_t width, height;
};

// A few are wider than the tiles in which some blocks work.
Size take_size(Input& in) {
    const uint32_t w = in.byte(), h = in.byte();
    return w < 248 ? Size{1 + w % 48, 1 + h % 24} : Size{500 + h % 32, 1 + w % 8};
}

// An image file, of noise, of noise on a level, of two levels, ramps or steps; with input bytes in it.
std::string take_image(Input& in, Size size, bool colour) {
    static constexpr uint32_t kMax[] = {255,  255,  255,   255,   1,        2,         100,
                                        1023, 4095, 65535, 65536, 16777215, 4294967295};
    const uint32_t max = kMax[in.byte() % std::size(kMax)];
    const size_t sample_bytes = max > 0xffffff ? 4 : max > 0xffff ? 3 : max > 0xff ? 2 : max > 1 ? 1 : 0;
    const uint8_t style = in.byte(), level = in.byte();
    uint32_t noise = in.word();
    std::string bytes(size_t{size.width} * size.height * (colour ? 3 : 1) * sample_bytes, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) {
        noise = noise * 1664525 + 1013904223;
        const uint32_t r = noise >> 24, x = static_cast<uint32_t>(i / sample_bytes % size.width);
        const uint32_t values[] = {r, level + (r & 3), (r & 1) * 255, 8 * x + (r & level),
                                   x / 4 % 2 * level + (r & 7)};
        const bool low = i % sample_bytes != 0 && style % 2 == 1;
        bytes[i] = static_cast<char>((low ? r : values[style % 5]) ^ (r < 40 ? in.byte() : 0));
    }
    if (style >= 240) {
        bytes.resize(bytes.size() * level / 256);  // ends early
    }
    return (colour ? "P6\n" : "P5\n") + std::to_string(size.width) + " " + std::to_string(size.height) +
           "\n" + std::to_string(max) + "\n" + bytes;
}

std::string take_registers(Input& in, Mode mode) {
    std::string text = "[ee0]\n";
    const auto set = [&](int slot, int64_t value) {
        text += std::string(cm::kRegTable[slot].key) + " = " + std::to_string(value) + "\n";
    };
    const int style = in.byte() % 4;  // defaults, any, ends of the fields, defaults and some of any
    uint32_t noise = in.word();
    for (int slot = 0; slot < EE_REG_COUNT && style != 0; ++slot) {
        noise = noise * 1664525 + 1013904223;
        const uint32_t r = noise >> 8;
        const int64_t half = int64_t{1} << (cm::kRegTable[slot].bits - 1);
        const int64_t ends[] = {0, -1, half - 1, half, 1};
        if (style < 3 || r % 4 == 0) {
            set(slot, style == 2 ? ends[r % std::size(ends)] : r >> 4);
        }
    }
    const uint8_t flags = in.byte();
    set(reg_ee_enable, flags % 32 != 0);
    set(reg_ee_debug_mode, flags < 128 ? 0 : flags);
    set(reg_ee_texture_mode, mode != kRgb && flags % 4 != 1);
    for (int n = in.byte() % 32; n > 0; --n) {
        set(in.byte() % EE_REG_COUNT, in.word() >> 12);
    }
    return text;
}

// The pipeline of the mode, stage by stage.
Frame run_stages(const Frame (&in)[kInputs], bool classic) {
    const auto plane = [&](int depth, uint32_t channels = 1) {
        return Frame(CM_NewFRAME(2, CM_FORMAT_SINGLE, in[kY]->width, in[kY]->height, channels, depth));
    };
    Frame clean = plane(8), cb = plane(8), cr = plane(8), ref = plane(8, 3), max = plane(8), min = plane(8),
          range = plane(8), mf = plane(11), hf = plane(11), core = plane(11), cored = plane(11);
    if (classic) {
        EE_PreProcess(in[kY], clean);
    }
    const FRAME* const y = classic ? clean : in[kY];
    EE_DupCbCr(in[kCb], in[kCr], cb, cr);
    EE_Cal5x5MinMax(y, max, min);
    EE_CalcDeltaRef(max, min, range);
    EE_GenLPF3x3(y, cb, cr, ref);
    if (classic) {
        EE_CalcDelta(y, mf, hf);
    } else if (reg_value(reg_ee_texture_mode) != 1) {
        PRE_EE_CalcDelta(y, mf, hf, "Yin");
    } else {
        Frame in_mf = plane(11), in_hf = plane(11), fusion_mf = plane(11), fusion_hf = plane(11);
        PRE_EE_CalcDelta(in[kFusion], fusion_mf, fusion_hf, "Yfusion");
        PRE_EE_CalcDelta(y, in_mf, in_hf, "Yin");
        PRE_EE_FlatDet(y, in[kFusion], in_mf, fusion_mf, mf, "MF");
        PRE_EE_FlatDet(y, in[kFusion], in_hf, fusion_hf, hf, "HF");
    }
    Frame delta = plane(8), luma = plane(8), chroma = plane(8), motion = plane(8), total = plane(12),
          total_delta = plane(11), clamped = plane(8), out = plane(8);
    EE_CalcCore(y, ref, in[kMotion], core);
    EE_Coring(mf, hf, core, cored);
    EE_CalcDeltaGain(range, delta);
    EE_LumaAdptGainCal(y, ref, luma);
    EE_ChromaGain(cb, cr, ref, chroma);
    EE_MotionGain(in[kMotion], motion);
    EE_TotalGain(delta, luma, chroma, motion, total);
    EE_TotalDelta(cored, total, total_delta);
    (classic ? EE_IOShoot : EE_IOShootPro)(total_delta, y, max, min, clamped);
    EE_SharpenMerge(clamped, in[kImage], out);

    const FRAME* const shown[] = {mf,     hf,     core,  cored,       delta,  luma,
                                  chroma, motion, total, total_delta, clamped};
    const int view = reg_value(reg_ee_debug_mode) - 1;
    if (view >= 0 && view < static_cast<int>(std::size(shown))) {
        const bool is_signed = "++-++----++"[view] == '+';
        const uint32_t factor = "11111888118"[view] == '8' ? 8 : 1;
        for (size_t i = 0; i < size_t{out->width} * out->height; ++i) {
            out->data[i] = EE_GenDbgOut(static_cast<uint32_t>(shown[view]->data[i]) * factor, is_signed,
                                        reg_value(reg_ee_debug_shift_bit));
        }
    }
    return out;
}

bool same_size(const Frame& a, const Frame& b) {
    return a && b && a->width == b->width && a->height == b->height;
}

void check_same(const Frame& got, const Frame& want) {
    FUZZ_CHECK(same_size(got, want) && got->channels == 1 && want->channels == 1);
    FUZZ_CHECK(std::memcmp(got->data, want->data, size_t{4} * want->width * want->height) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    log_set_quiet(true);
    Input in{data, size};
    const Mode mode = static_cast<Mode>(in.byte() % kModes);
    const bool rgb = mode == kRgb, classic = mode == kClassic;
    const int targets = in.byte();
    INIT_EE_REG("0");
    LOAD_EE_INI(write_file(scratch_path("regs.ini"), take_registers(in, mode)).c_str());

    const Size luma = take_size(in), half{(luma.width + 1) / 2, luma.height};
    const bool odd_chroma = in.byte() % 4 == 1;
    cm::PackedImage packed[kInputs];
    Frame planes[kInputs];
    for (int i = 0; i < kInputs; ++i) {
        const bool chroma = i == kCb || i == kCr, colour = rgb && i == kY;
        const bool odd = chroma ? odd_chroma : i != kY && in.byte() == 1;
        const Size own = odd ? take_size(in) : chroma ? half : luma;
        const std::string path = write_file(scratch_path("plane.pnm"), take_image(in, own, colour));
        packed[i] =
            cm::read_pnm(path.c_str(), colour ? cm::PnmKind::kColour : cm::PnmKind::kGrey, cm::at::kReadGrey);
        planes[i].reset((colour ? CM_ReadPPM : CM_ReadPPM5)(path.c_str(), 2));
    }
    if (rgb) {
        const Frame ycbcr(CM_RGB2YCbCr(planes[kY]));
        for (int i = kY; i <= kImage; ++i) {
            planes[i].reset(CM_CopySingleCh(ycbcr, i % kImage));  // the luma is sharpened itself
        }
        planes[kFusion].reset();
    }

    cm::set_row_target(static_cast<cm::RowTarget>(targets % 3));
    Frame out;
    const std::optional<int> status = exit_status([&] {
        const auto& p = planes;
        out.reset(classic ? ee_hw(p[kY], p[kCb], p[kCr], p[kImage], p[kMotion])
                          : pre_ee_hw(p[kY], p[kCb], p[kCr], p[kImage], p[kMotion], p[kFusion]));
    });
    if (!cm::block_enabled()) {
        FUZZ_CHECK(!status);
        check_same(out, planes[classic ? kImage : kY]);
        return 0;
    }
    const bool texture = !classic && reg_value(reg_ee_texture_mode) == 1;
    const bool fit = same_size(planes[kY], planes[kImage]) && same_size(planes[kY], planes[kMotion]) &&
                     (!texture || same_size(planes[kY], planes[kFusion]));
    FUZZ_CHECK(status == (fit ? std::nullopt : std::optional(-1)));
    if (!fit) {
        return 0;
    }
    const size_t pixels = size_t{luma.width} * luma.height;
    std::vector<uint8_t> bytes(pixels);
    if (!classic) {
        const cm::PackedSource grey[kInputs] = {
            cm::PackedSource(packed[kY]),      cm::PackedSource(packed[kCb]),
            cm::PackedSource(packed[kCr]),     cm::PackedSource(packed[kImage]),
            cm::PackedSource(packed[kMotion]), cm::PackedSource(packed[kFusion])};
        const cm::PackedChannelSource red(packed[kY], 0), green(packed[kY], 1), blue(packed[kY], 2);
        using cm::ColourSource;
        const ColourSource y(red, green, blue, ColourSource::kLuma), cb(red, green, blue, ColourSource::kCb),
            cr(red, green, blue, ColourSource::kCr);
        cm::InputPlanes rows = {&grey[kY],     &grey[kCb],     &grey[kCr],
                                &grey[kImage], &grey[kMotion], &grey[kFusion]};
        if (rgb) {
            rows[kY] = rows[kImage] = &y;
            rows[kCb] = &cb;
            rows[kCr] = &cr;
            rows[kFusion] = nullptr;
        }
        cm::ByteSink sink(bytes.data(), static_cast<int>(luma.width));
        cm::run_fixed(cm::kPreEe, rows, sink);
    }
    cm::set_row_target(static_cast<cm::RowTarget>(targets / 3 % 3));
    const Frame want = run_stages(planes, classic);
    check_same(out, want);
    for (size_t i = 0; i < pixels && !classic; ++i) {
        FUZZ_CHECK(bytes[i] == static_cast<uint8_t>(want->data[i]));
    }
    return 0;
}

std::vector<std::string> fuzz_seeds() {
    // Noise serves: every input makes files that can be read.
    std::vector<std::string> seeds;
    uint32_t noise = 1;
    for (int i = 0; i < 24; ++i) {
        seeds.emplace_back(static_cast<size_t>(64 + 16 * i), '\0');
        for (char& c : seeds.back()) {
            noise = noise * 1664525 + 1013904223;
            c = static_cast<char>(noise >> 24);
        }
    }
    return seeds;
}
