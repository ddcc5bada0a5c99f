// Gain by brightness, from luma itself or from its low-pass.
#include "ee_blocks.h"
#include "ee_reg_table.h"
#include "row_io.h"

namespace cm {

LumaGainConfig configure_luma_gain() {
    LumaGainConfig c;
    c.by_lowpass = reg_value(reg_ee_lumaref_lpf_en) == 1;
    c.gain = reg_value(reg_ee_luma_adptctrl_en) == 1 ? tabulate_33_knots(reg_ee_luma_adptctrl_lut_00, false)
                                                     : constant_table(64);
    if (reg_value(reg_ee_enable) != 1) {
        c.gain = constant_table(c.gain.entry[0]);  // luma counts as black
    }
    return c;
}

}  // namespace cm

void EE_LumaAdptGainCal(const FRAME* Y, const FRAME* ref, FRAME* gain) {
    const cm::LumaGainConfig config = cm::configure_luma_gain();
    const int width = static_cast<int>(Y->width);
    const cm::AlignedRow out = cm::output_row(width);
    cm::FrameReader brightness(config.by_lowpass ? *ref : *Y, width);
    for (int y = 0; y < static_cast<int>(Y->height); ++y) {
        cm::byte_table_row(brightness.row(y), out.get(), width, config.gain);
        cm::write_row(*gain, y, out.get(), width);
    }
}
