// eetool explain: every stage at one pixel, and what decided it.
#include "model_run.h"

namespace eetool {
namespace {

struct Options : FrameOptions {
    std::string at;
};

int explain(const Options& o) {
    int x = 0, y = 0, end = 0;
    if (std::sscanf(o.at.c_str(), "%9d,%9d%n", &x, &y, &end) != 2 || o.at.c_str()[end] != '\0') {
        throw CLI::ValidationError("--at", o.at + ": give X,Y");
    }
    const ModelRun run(o);
    const Size size = run.size();
    if (x < 0 || y < 0 || x >= size.width || y >= size.height) {
        throw CLI::ValidationError("--at", o.at + " lies outside the frame of " + size.text());
    }
    std::string text;
    int length = 1 << 14;  // more than it takes, as a rule
    do {
        text.resize(static_cast<size_t>(length) + 1);
        length = cmodel_explain(run.model(), x, y, text.data(), text.size());
        run.require(length);
    } while (static_cast<size_t>(length) >= text.size());
    std::fputs(text.c_str(), stdout);
    return kOk;
}

std::function<int()> declare(CLI::App& app) {
    const auto o = std::make_shared<Options>();
    declare_frame_options(app, *o);
    app.add_option("--at", o->at, "column and row, from 0")->option_text("X,Y (required)")->required();
    return [o] { return explain(*o); };
}

}  // namespace

const Command kExplain = {
    "explain", "Tell every stage at one pixel, and what decided it",
    "  eetool pattern star --sigma 2 --y y.pgm --cb cb.pgm --cr cr.pgm\n"
    "  eetool explain --set reg_ee_texture_mode=0 --y y.pgm --cb cb.pgm --cr cr.pgm --at 100,80\n"
    "  eetool explain --pipeline classic --y y.pgm --cb cb.pgm --cr cr.pgm --at 0,0\n",
    "A line a stage: name, value, unit, meaning; below it what decided the value (class, curve segment,\n"
    "limiter), and the registers to turn.\n",
    declare};

}  // namespace eetool
