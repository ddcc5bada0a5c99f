// One run of a list: which frame, which setting, what is made of it. A line of JSON each.
#ifndef CMODEL_BATCH_JOB_H
#define CMODEL_BATCH_JOB_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "clip.h"

namespace eetool {

struct Job {
    std::string id;  // of its own in a list; "FRAME@SETTING" in lists that `eetool jobs` writes
    std::string pipeline = "pre_ee";
    std::string ini;  // "": the defaults
    std::string instance = "NULL";
    std::vector<std::pair<std::string, int32_t>> set;        // over what the INI file gives
    std::vector<std::pair<std::string, std::string>> image;  // input name (or "rgb", "photo") and path
    std::string clip;                                        // "": none
    std::optional<RawFormat> raw;                            // of a clip without a header
    uint64_t frame = 0;                                      // of the clip
    std::string out;                                         // "": hash only
    std::vector<std::string> stages;
    std::string expect;  // SHA-256 of the output; "": any

    // The files that it reads, register file included.
    std::vector<std::string> inputs() const;
};

// A line as a job. Throws Cannot with what is wrong, without a place: no JSON, a key that is not known or has
// another type, no id, no frame or two of them.
Job parse_job(std::string_view line);

// The line, without its end. Throws Cannot for a text that is no UTF-8.
std::string line_of(const Job& job);

// The frame and the setting of an id, at its last '@'; without one the setting is "-".
std::pair<std::string, std::string> split_id(const std::string& id);

// 64 bits of the SHA-256 of a text.
uint64_t digest_of(std::string_view text);
std::string hex_of(uint64_t digest);

}  // namespace eetool

#endif
