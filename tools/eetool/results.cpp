// eetool results: what came of a batch, as a page.
#include <cstdio>

#include "commands.h"
#include "stage_files.h"
#include "summary.h"

namespace eetool {
namespace {

struct Options {
    std::vector<std::string> files;
    std::string junit;
    size_t most = 20;
};

int run(const Options& o) {
    const ResultSet results(o.files);
    const std::string text = summary_of(results, o.most);
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        return report_cannot("written", "standard output");
    }
    if (!o.junit.empty()) {
        write_junit(o.junit, results);
    }
    return kOk;
}

std::function<int()> declare(CLI::App& app) {
    const auto o = std::make_shared<Options>();
    app.add_option("RESULTS", o->files, "results of a list, or of its shards")->required();
    app.add_option("--most", o->most, "settings, frames and failures that are listed")->option_text("N [20]");
    app.add_option("--junit", o->junit, "a report in JUnit's XML, too")->option_text("FILE");
    return [o] { return run(*o); };
}

}  // namespace

const Command kResults = {
    "results", "Summarise the results of a batch",
    "  eetool pattern star --width 320 --height 240 --sigma 2 --y 1_y.pgm --cb 1_cb.pgm --cr 1_cr.pgm\n"
    "  eetool jobs --frames '%d_{y,cb,cr}.pgm' --set reg_ee_texture_mode=0 --out list.jsonl\n"
    "  eetool batch list.jsonl --results results.jsonl\n"
    "  eetool results results.jsonl --junit results.xml\n",
    "Totals, settings, frames (those with failures first), the slowest jobs, and each failure with the "
    "command\n"
    "that repeats it.\n",
    declare};

}  // namespace eetool
