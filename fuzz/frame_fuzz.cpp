// The whole path from the bytes of all files to the output: the pipelines, which run line by line on
// packed planes or frames, against the blocks' own frame functions called one after the other.
//
// An input says how the files are made, so that most of them get past the readers: sizes, depths,
// registers, and what fills the planes.
#include <cstring>
#include <memory>

#include "common.h"
#include "ee_hw.h"
#include "ee_reg.h"
#include "ee_reg_table.h"
#include "fuzz.h"
#include "pre_ee_hw.h"
#include "pre_ee_pipeline.h"
#include "row_targets.h"

namespace {

using cm::reg_value;

struct DeleteFrame {
    void operator()(FRAME* f) const { CM_DelFRAME(f); }
};
using Frame = std::unique_ptr<FRAME, DeleteFrame>;

enum Mode { kRgb, kPlanes, kClassic, kModes };

// ---- Files ----

struct Size {
    uint32_t width, height;
};

Size take_size(Input& in) {
    const uint8_t w = in.byte();
    const uint8_t h = in.byte();
    // A few are wider than the tiles in which some blocks work.
    return w < 248 ? Size{1 + w % 48u, 1 + h % 24u} : Size{500 + h % 32u, 1 + w % 8u};
}

// The luma's size with few exceptions.
Size take_like(Input& in, Size luma) {
    return in.byte() == 1 ? take_size(in) : luma;
}

std::string take_image(Input& in, Size size, bool colour) {
    static constexpr uint32_t kMax[] = {255,   255,   255, 255, 1,   2,     100,   1023,     4095,
                                        65535, 65536, 255, 7,   512, 40000, 32767, 16777215, 4294967295};
    const uint32_t max = kMax[in.byte() % std::size(kMax)];
    const size_t sample_bytes = max > 0xffffff ? 4 : max > 0xffff ? 3 : max > 0xff ? 2 : max > 1 ? 1 : 0;
    size_t length = size_t{size.width} * size.height * (colour ? 3 : 1) * sample_bytes;
    const uint8_t style = in.byte();
    uint32_t noise = in.word();
    const uint8_t mask = in.byte();
    if (style >= 240) {
        length = length * mask / 256;  // cut short
    }
    std::string bytes(length, '\0');
    for (size_t i = 0; i < length; ++i) {
        noise = noise * 1664525 + 1013904223;
        const uint32_t r = noise >> 24;
        const size_t x = i / std::max<size_t>(sample_bytes, 1) % size.width;
        const bool high = sample_bytes < 2 || i % sample_bytes == 0;  // the byte that matters most
        const uint32_t v = style % 5 == 0   ? r
                           : style % 5 == 1 ? mask + (r & 3)
                           : style % 5 == 2 ? (r & 1) * 255
                           : style % 5 == 3 ? 8 * x + (r & mask)
                                            : (x / 4 % 2) * mask + (r & 7);
        bytes[i] = static_cast<char>(high || style % 2 == 0 ? v : r);
        if (r < 40) {
            bytes[i] = static_cast<char>(in.byte() ^ v);
        }
    }
    return std::string(colour ? "P6\n" : "P5\n") + std::to_string(size.width) + " " +
           std::to_string(size.height) + "\n" + std::to_string(max) + "\n" + bytes;
}

std::string take_registers(Input& in, Mode mode) {
    std::string text = "[ee0]\n";
    const auto set = [&](int slot, int64_t value) {
        text += std::string(cm::kRegTable[slot].key) + " = " + std::to_string(value) + "\n";
    };
    const int style = in.byte() % 4;
    uint32_t noise = in.word();
    for (int slot = 0; slot < EE_REG_COUNT && style != 0; ++slot) {
        noise = noise * 1664525 + 1013904223;
        const uint32_t r = noise >> 8;
        const int bits = cm::kRegTable[slot].bits;
        const int64_t ends[] = {0, -1, (1 << (bits - 1)) - 1, 1 << (bits - 1), 1, cm::kRegTable[slot].def};
        if (style == 1 || (style == 3 && r % 4 == 0)) {
            set(slot, r);
        } else if (style == 2) {
            set(slot, ends[r % std::size(ends)]);
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

// ---- Stage by stage ----

struct Planes {
    Frame y, cb, cr, image, motion, fusion;
};

class Stages {
  public:
    Stages(const Planes& planes, Mode mode) : planes_(planes), mode_(mode) {}

    Frame run() {
        const bool classic = mode_ == kClassic;
        Frame clean = plane(8);
        if (classic) {
            EE_PreProcess(planes_.y.get(), clean.get());
        }
        const FRAME* const y = classic ? clean.get() : planes_.y.get();
        const Frame cb = plane(8), cr = plane(8), ref = plane(8, 3);
        const Frame max = plane(8), min = plane(8), range = plane(8);
        EE_DupCbCr(planes_.cb.get(), planes_.cr.get(), cb.get(), cr.get());
        EE_Cal5x5MinMax(y, max.get(), min.get());
        EE_CalcDeltaRef(max.get(), min.get(), range.get());
        EE_GenLPF3x3(y, cb.get(), cr.get(), ref.get());
        const Frame mf = plane(11), hf = plane(11);
        if (classic) {
            EE_CalcDelta(y, mf.get(), hf.get());
        } else if (reg_value(reg_ee_texture_mode) != 1) {
            PRE_EE_CalcDelta(y, mf.get(), hf.get(), "Yin");
        } else {
            const FRAME* const fusion = planes_.fusion.get();
            const Frame in_mf = plane(11), in_hf = plane(11), fusion_mf = plane(11), fusion_hf = plane(11);
            PRE_EE_CalcDelta(fusion, fusion_mf.get(), fusion_hf.get(), "Yfusion");
            PRE_EE_CalcDelta(y, in_mf.get(), in_hf.get(), "Yin");
            PRE_EE_FlatDet(y, fusion, in_mf.get(), fusion_mf.get(), mf.get(), "MF");
            PRE_EE_FlatDet(y, fusion, in_hf.get(), fusion_hf.get(), hf.get(), "HF");
        }
        const Frame core = plane(11), cored = plane(11), delta = plane(8), luma = plane(8), chroma = plane(8),
                    motion = plane(8), total = plane(12), total_delta = plane(11), clamped = plane(8);
        EE_CalcCore(y, ref.get(), planes_.motion.get(), core.get());
        EE_Coring(mf.get(), hf.get(), core.get(), cored.get());
        EE_CalcDeltaGain(range.get(), delta.get());
        EE_LumaAdptGainCal(y, ref.get(), luma.get());
        EE_ChromaGain(cb.get(), cr.get(), ref.get(), chroma.get());
        EE_MotionGain(planes_.motion.get(), motion.get());
        EE_TotalGain(delta.get(), luma.get(), chroma.get(), motion.get(), total.get());
        EE_TotalDelta(cored.get(), total.get(), total_delta.get());
        (classic ? EE_IOShoot : EE_IOShootPro)(total_delta.get(), y, max.get(), min.get(), clamped.get());
        Frame out = plane(8);
        EE_SharpenMerge(clamped.get(), planes_.image.get(), out.get());

        const FRAME* const shown[] = {mf.get(),    hf.get(),          core.get(),   cored.get(),
                                      delta.get(), luma.get(),        chroma.get(), motion.get(),
                                      total.get(), total_delta.get(), clamped.get()};
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

  private:
    Frame plane(int depth, uint32_t channels = 1) const {
        return Frame(CM_NewFRAME(2, CM_FORMAT_SINGLE, planes_.y->width, planes_.y->height, channels, depth));
    }

    const Planes& planes_;
    Mode mode_;
};

void check_same(const FRAME& got, const FRAME& want) {
    FUZZ_CHECK(got.width == want.width && got.height == want.height && got.channels == want.channels);
    const size_t size = size_t{want.width} * want.height * want.channels * sizeof(int32_t);
    FUZZ_CHECK(std::memcmp(got.data, want.data, size) == 0);
}

bool same_size(const Frame& a, const Frame& b) {
    return a->width == b->width && a->height == b->height;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    log_set_quiet(true);
    dump_dbg_img = 0;
    Input in(data, size);
    const Mode mode = static_cast<Mode>(in.byte() % kModes);
    const uint8_t targets = in.byte();
    write_file(scratch_path("regs.ini"), take_registers(in, mode));
    const Size luma = take_size(in);
    const Size half{(luma.width + 1) / 2, luma.height};
    const bool odd_chroma = in.byte() % 4 == 1;

    cm::PackedImage packed[6];  // Y (or RGB), Cb, Cr, image, motion, fusion
    Frame frames[6];
    for (int i = 0; i < 6; ++i) {
        const bool chroma = i == 1 || i == 2;
        const bool colour = mode == kRgb && i == 0;
        const Size own = i == 0 ? luma : !chroma ? take_like(in, luma) : odd_chroma ? take_size(in) : half;
        const std::string path = scratch_path("plane.pnm");
        write_file(path, take_image(in, own, colour));
        packed[i] = cm::read_pnm(path.c_str(), colour ? cm::PnmKind::kColour : cm::PnmKind::kGrey, 0);
        frames[i].reset(colour ? CM_ReadPPM(path.c_str(), 2) : CM_ReadPPM5(path.c_str(), 2));
    }
    INIT_EE_REG("0");
    LOAD_EE_INI(scratch_path("regs.ini").c_str());

    Planes planes;
    if (mode == kRgb) {
        const Frame ycbcr(CM_RGB2YCbCr(frames[0].get()));
        planes = {Frame(CM_CopySingleCh(ycbcr.get(), 0)),
                  Frame(CM_CopySingleCh(ycbcr.get(), 1)),
                  Frame(CM_CopySingleCh(ycbcr.get(), 2)),
                  Frame(CM_CopySingleCh(ycbcr.get(), 0)),
                  std::move(frames[4]),
                  nullptr};
    } else {
        planes = {std::move(frames[0]), std::move(frames[1]), std::move(frames[2]),
                  std::move(frames[3]), std::move(frames[4]), std::move(frames[5])};
    }

    cm::set_row_target(static_cast<cm::RowTarget>(targets % 3));
    Frame out;
    const std::optional<int> status = exit_status([&] {
        const FRAME *y = planes.y.get(), *cb = planes.cb.get(), *cr = planes.cr.get();
        const FRAME *image = planes.image.get(), *motion = planes.motion.get();
        out.reset(mode == kClassic ? ee_hw(y, cb, cr, image, motion)
                                   : pre_ee_hw(y, cb, cr, image, motion, planes.fusion.get()));
    });
    if (!cm::block_enabled()) {
        FUZZ_CHECK(!status);
        check_same(*out, mode == kClassic ? *planes.image : *planes.y);
        return 0;
    }
    const bool texture = mode != kClassic && reg_value(reg_ee_texture_mode) == 1;
    const bool fit = same_size(planes.y, planes.image) && same_size(planes.y, planes.motion) &&
                     (!texture || (planes.fusion && same_size(planes.y, planes.fusion)));
    FUZZ_CHECK(status == (fit ? std::nullopt : std::optional(-1)));
    if (!fit) {
        return 0;
    }
    std::string bytes(size_t{luma.width} * luma.height, '\0');
    if (mode != kClassic) {
        using Component = cm::RowSource::Component;
        using cm::RowSource;
        const bool rgb = mode == kRgb;
        const cm::EePlanes rows{rgb ? RowSource(packed[0], Component::kLuma) : RowSource(packed[0]),
                                rgb ? RowSource(packed[0], Component::kCb) : RowSource(packed[1]),
                                rgb ? RowSource(packed[0], Component::kCr) : RowSource(packed[2]),
                                rgb ? RowSource(packed[0], Component::kLuma) : RowSource(packed[3]),
                                RowSource(packed[4]),
                                rgb ? std::nullopt : std::optional<RowSource>(packed[5])};
        FUZZ_CHECK(!exit_status([&] { cm::check_pre_ee_planes(rows); }));
        cm::ByteSink sink(reinterpret_cast<uint8_t*>(bytes.data()), static_cast<int>(luma.width));
        cm::run_pre_ee(rows, sink);
    }
    cm::set_row_target(static_cast<cm::RowTarget>(targets / 3 % 3));
    const Frame want = Stages(planes, mode).run();
    check_same(*out, *want);
    for (size_t i = 0; i < bytes.size() && mode != kClassic; ++i) {
        FUZZ_CHECK(static_cast<uint8_t>(bytes[i]) == static_cast<uint8_t>(want->data[i]));
    }
    return 0;
}

std::vector<std::string> fuzz_seeds() {
    // Noise serves: every input makes files that can be read.
    std::vector<std::string> seeds;
    uint32_t noise = 1;
    for (int i = 0; i < 24; ++i) {
        std::string seed(static_cast<size_t>(64 + 16 * i), '\0');
        for (char& c : seed) {
            noise = noise * 1664525 + 1013904223;
            c = static_cast<char>(noise >> 24);
        }
        seed[0] = static_cast<char>(i % kModes);
        seeds.push_back(seed);
    }
    return seeds;
}
