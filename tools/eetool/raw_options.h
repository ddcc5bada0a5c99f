// The options that say what a raw clip is.
#ifndef CMODEL_EETOOL_RAW_OPTIONS_H
#define CMODEL_EETOOL_RAW_OPTIONS_H

#include <CLI/CLI.hpp>
#include <cstdio>
#include <optional>
#include <string>

#include "clip.h"

namespace eetool {

struct RawOptions {
    std::string format, size;
    int depth = 8;
};

inline void declare_raw_options(CLI::App& app, RawOptions& o) {
    CLI::Option* const raw =
        app.add_option("--raw", o.format, "clips are raw: i420, nv12, i422 or mono")->option_text("FORMAT");
    CLI::Option* const size =
        app.add_option("--size", o.size, "of raw frames")->option_text("WIDTHxHEIGHT")->needs(raw);
    raw->needs(size);
    app.add_option("--depth", o.depth, "bits of raw samples; above 8 they have 16, little-endian")
        ->option_text("N [8]")
        ->needs(raw);
}

// Nothing for Y4M. Throws Cannot or a CLI::ParseError.
inline std::optional<RawFormat> raw_format(const RawOptions& o) {
    if (o.format.empty()) {
        return std::nullopt;
    }
    int width = 0, height = 0;
    char rest = 0;
    if (std::sscanf(o.size.c_str(), "%7dx%7d%c", &width, &height, &rest) != 2) {
        throw CLI::ValidationError("--size", o.size + ": give WIDTHxHEIGHT");
    }
    return RawFormat(o.format, width, height, o.depth);
}

}  // namespace eetool

#endif
