// The pipeline that the program runs, on frames: texture detection in front of the edge-enhancement blocks.
//
//   texture mode 0:   Yin ---- delta ------------------------------ MF, HF --+
//   texture mode 1:   Yin ---- delta --+                                     |
//                                      +-- flat detection --------- MF, HF --+--> coring ... merge
//                     Yfusion - delta -+
#include "pre_ee_hw.h"

#include "fixed_run.h"
#include "pre_ee_blocks.h"

namespace cm {
namespace {

struct TextureModeOn {
    void configure(const Registers&, const BlockSetup&) {}
    template <typename T>
    void run(const BlockRows<T>&) const {}
    void report(const BlockReport& report) const {
        report.log.record(LOG_INFO, at::kTextureOn, "texture mode is 1");
    }
};

struct TextureModeOff {
    void configure(const Registers&, const BlockSetup&) {}
    template <typename T>
    void run(const BlockRows<T>&) const {}
    void report(const BlockReport& report) const {
        report.log.record(LOG_INFO, at::kTextureOff, "texture mode is 0");
    }
};

}  // namespace

const Block kTextureModeOn = make_block<TextureModeOn>({"texture mode 1", "", ""}, {}, {});
const Block kTextureModeOff = make_block<TextureModeOff>({"texture mode 0", "", ""}, {}, {});

}  // namespace cm

FRAME* pre_ee_hw(const FRAME* Yin, const FRAME* Cb, const FRAME* Cr, const FRAME* src_ynr, const FRAME* mmap,
                 const FRAME* Yfusion) {
    if (!cm::block_enabled()) {
        return CM_CopyFRAME(Yin);
    }
    const cm::FrameSource y(*Yin), cb(*Cb), cr(*Cr), ynr(*src_ynr), motion(*mmap);
    std::optional<cm::FrameSource> fusion;
    if (Yfusion != nullptr) {
        fusion.emplace(*Yfusion);
    }
    const cm::InputPlanes planes = {&y, &cb, &cr, &ynr, &motion, fusion ? &*fusion : nullptr};
    cm::check_pre_ee_planes(planes);
    FRAME* const out = cm::new_output_frame(*Yin);
    cm::FrameSink sink(*out);
    cm::run_fixed(cm::kPreEe, planes, sink);
    if (cm::shows_debug_view()) {
        cm::set_neutral_chroma(*out);
    }
    return out;
}
