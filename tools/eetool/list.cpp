// eetool list: what registers, stages and pipelines there are, for scripts and completions.
#include <cstdio>

#include "cmodel.h"
#include "commands.h"

namespace eetool {
namespace {

void list_registers() {
    for (int i = 0; i < cmodel_register_count(); ++i) {
        const cmodel_register_info& row = *cmodel_register(i);
        std::printf("%s\t%d\t%d\t%d\t%s\n", row.key, row.default_value, row.least, row.greatest, row.meaning);
    }
}

void list_stages(const std::string& pipeline) {
    for (int i = 0; i < cmodel_stage_count(pipeline.c_str()); ++i) {
        const cmodel_stage_info& row = *cmodel_stage(pipeline.c_str(), i);
        std::printf("%s\t%d\t%d\t%s\t%s\n", row.name, row.least, row.greatest, row.unit, row.meaning);
    }
}

void list_pipelines() {
    for (int i = 0; cmodel_pipeline(i) != nullptr; ++i) {
        std::puts(cmodel_pipeline(i));
    }
}

struct Options {
    std::string what, pipeline = "pre_ee";
};

int run(const Options& o) {
    if (o.what == "registers") {
        list_registers();
    } else if (o.what == "stages") {
        list_stages(o.pipeline);
    } else {
        list_pipelines();
    }
    return std::fflush(stdout) == 0 ? kOk : report_cannot("written", "standard output");
}

std::function<int()> declare(CLI::App& app) {
    const auto o = std::make_shared<Options>();
    app.add_option("what", o->what, "registers, stages or pipelines")
        ->required()
        ->option_text("(required)")
        ->check(CLI::IsMember({"registers", "stages", "pipelines"}));
    app.add_option("--pipeline", o->pipeline, "whose stages: pre_ee or classic")
        ->option_text("NAME [pre_ee]")
        ->check(CLI::IsMember({"pre_ee", "classic"}));
    return [o] { return run(*o); };
}

}  // namespace

const Command kList = {
    "list", "List registers, stages or pipelines by name",
    "  eetool list registers\n"
    "  eetool list stages --pipeline classic\n"
    "  eetool list pipelines\n",
    "A line each, columns with a tab between. Registers: key, default, least and greatest value, meaning;\n"
    "stages: name, least and greatest value, unit, meaning, in the order of their making.\n",
    declare};

}  // namespace eetool
