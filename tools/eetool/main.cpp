// Companion of the model: what its users need from a shell besides running the block.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "cmodel.h"
#include "commands.h"
#include "fatal.h"
#include "pictures.h"
#include "stage_files.h"

namespace eetool {

int report_cannot(const char* done, const std::string& path) {
    std::fprintf(stderr, "eetool: %s cannot be %s: %s\n", path.c_str(), done, std::strerror(errno));
    return kCannot;
}

bool can_write(const std::string& path) {
    FILE* const file = std::fopen(path.c_str(), "r+b");
    if (file != nullptr || errno != ENOENT) {
        return file != nullptr && std::fclose(file) == 0;
    }
    const size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    return access(directory.c_str(), W_OK | X_OK) == 0;
}

Planes split_planes(const FRAME& ycbcr) {
    const auto new_plane = [&](uint32_t width) {
        return Frame(CM_NewFRAME(2, CM_FORMAT_SINGLE, width, ycbcr.height, 1, ycbcr.depth));
    };
    const uint32_t chroma_width = (ycbcr.width + 1) / 2;
    Planes planes{new_plane(ycbcr.width), new_plane(chroma_width), new_plane(chroma_width)};
    CM_YCbCr444to422(&ycbcr, planes.y.get(), planes.cb.get(), planes.cr.get());
    return planes;
}

}  // namespace eetool

// Ahead of the static objects of the command-line parser, which take memory.
[[gnu::constructor(101)]] static void prepare() {
    cm::prepare_program();
}

int main(int argc, char** argv) {
    using eetool::Command;
    const Command* const commands[] = {&eetool::kRun,  &eetool::kSweep,   &eetool::kPlanes,
                                       &eetool::kDiff, &eetool::kExplain, &eetool::kClassic,
                                       &eetool::kIni,  &eetool::kList,    &eetool::kPattern,
                                       &eetool::kJobs, &eetool::kBatch,   &eetool::kResults};

    log_set_quiet(true);
    CLI::App app("Companion of the edge-enhancement model.", "eetool");
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("eetool ") + cmodel_version());
    app.footer("eetool SUBCOMMAND --help shows its options and an example.");
    std::vector<std::pair<CLI::App*, std::function<int()>>> entries;
    for (const Command* const command : commands) {
        CLI::App* const sub = app.add_subcommand(command->name, command->summary);
        sub->footer(std::string(command->notes) + "\nExample:\n" + command->examples);
        entries.emplace_back(sub, command->declare(*sub));
    }

    try {
        app.parse(argc, argv);
        for (const auto& [sub, run] : entries) {
            if (sub->parsed()) {
                return run();
            }
        }
    } catch (const CLI::ParseError& e) {
        return app.exit(e);
    } catch (const eetool::Cannot& e) {
        std::fprintf(stderr, "eetool: %s\n", e.what());
    } catch (const pictures::Error& e) {
        std::fprintf(stderr, "eetool: %s\n", e.what());
    }
    return eetool::kCannot;
}
