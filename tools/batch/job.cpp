#include "job.h"

#include <nettle/sha2.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <nlohmann/json.hpp>

#include "stage_files.h"

namespace eetool {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kImages[] = {"y", "cb", "cr", "ynr", "mmap", "yfusion", "rgb", "photo"};

bool is_image(const std::string& key) {
    return std::find(std::begin(kImages), std::end(kImages), key) != std::end(kImages);
}

const std::string& text_of(const std::string& key, const Json& value) {
    if (!value.is_string()) {
        throw Cannot(key + " is no text");
    }
    return value.get_ref<const std::string&>();
}

int64_t number_of(const std::string& key, const Json& value, int64_t least, int64_t most) {
    const bool fits = value.is_number_integer() &&
                      !(value.is_number_unsigned() && value.get<uint64_t>() > static_cast<uint64_t>(most)) &&
                      value.get<int64_t>() >= least && value.get<int64_t>() <= most;
    if (!fits) {
        throw Cannot(key + " is no whole number from " + std::to_string(least) + " to " +
                     std::to_string(most));
    }
    return value.get<int64_t>();
}

RawFormat raw_of(const Json& value) {
    if (!value.is_object()) {
        throw Cannot("raw is no object");
    }
    std::string format;
    int width = 0, height = 0, depth = 8;
    for (const auto& [key, v] : value.items()) {
        if (key == "format") {
            format = text_of("raw.format", v);
        } else if (key == "width" || key == "height" || key == "depth") {
            int& number = key == "width" ? width : key == "height" ? height : depth;
            number = static_cast<int>(number_of("raw." + key, v, 1, kMostSide));
        } else {
            throw Cannot("raw has a key that is not known: " + key);
        }
    }
    return RawFormat(format, width, height, depth);
}

void take_key(Job& job, const std::string& key, const Json& value) {
    if (key == "id") {
        job.id = text_of(key, value);
    } else if (key == "pipeline") {
        job.pipeline = text_of(key, value);
    } else if (key == "ini") {
        job.ini = text_of(key, value);
    } else if (key == "instance") {
        job.instance = text_of(key, value);
    } else if (key == "set") {
        if (!value.is_object()) {
            throw Cannot("set is no object");
        }
        for (const auto& [name, v] : value.items()) {
            job.set.emplace_back(name, number_of(name, v, INT32_MIN, INT32_MAX));
        }
    } else if (is_image(key)) {
        job.image.emplace_back(key, text_of(key, value));
    } else if (key == "clip") {
        job.clip = text_of(key, value);
    } else if (key == "frame") {
        job.frame = static_cast<uint64_t>(number_of(key, value, 0, INT64_MAX));
    } else if (key == "raw") {
        job.raw = raw_of(value);
    } else if (key == "out") {
        job.out = value.is_null() ? "" : text_of(key, value);
    } else if (key == "stages") {
        if (!value.is_array()) {
            throw Cannot("stages is no list");
        }
        for (const Json& name : value) {
            job.stages.push_back(text_of("a name in stages", name));
        }
    } else if (key == "expect") {
        job.expect = value.is_null() ? "" : text_of(key, value);
    } else {
        throw Cannot("there is no key " + key);
    }
}

void check(const Job& job) {
    const auto given = [&](const char* name) {
        return std::any_of(job.image.begin(), job.image.end(),
                           [&](const auto& i) { return i.first == name; });
    };
    if (job.id.empty()) {
        throw Cannot("there is no id");
    }
    if (job.pipeline != "pre_ee" && job.pipeline != "classic") {
        throw Cannot("there is no pipeline " + job.pipeline);
    }
    const bool some = given("y") || given("cb") || given("cr");
    const int sources = int{some} + int{given("rgb")} + int{given("photo")} + int{!job.clip.empty()};
    if (sources != 1 || (some && !(given("y") && given("cb") && given("cr")))) {
        throw Cannot("a job has one of y with cb and cr, rgb, photo, and clip with frame");
    }
    if (job.raw && job.clip.empty()) {
        throw Cannot("raw says what a clip is, and there is none");
    }
    const bool is_hash =
        job.expect.size() == 64 && job.expect.find_first_not_of("0123456789abcdef") == std::string::npos;
    if (!job.expect.empty() && !is_hash) {
        throw Cannot("expect is no SHA-256 in 64 hexadecimal digits");
    }
}

}  // namespace

std::vector<std::string> Job::inputs() const {
    std::vector<std::string> paths;
    for (const std::string* const path : {&ini, &clip}) {
        if (!path->empty()) {
            paths.push_back(*path);
        }
    }
    for (const auto& [name, path] : image) {
        paths.push_back(path);
    }
    return paths;
}

Job parse_job(std::string_view line) {
    Json json;
    try {
        json = Json::parse(line.begin(), line.end());
    } catch (const Json::exception& e) {
        const std::string what = e.what();
        throw Cannot("this is no JSON: " + what.substr(std::min(what.find("] ") + 2, what.size())));
    }
    if (!json.is_object()) {
        throw Cannot("this is no JSON object");
    }
    Job job;
    for (const auto& [key, value] : json.items()) {
        take_key(job, key, value);
    }
    check(job);
    return job;
}

std::string line_of(const Job& job) {
    Json json;
    json["id"] = job.id;
    json["pipeline"] = job.pipeline;
    if (!job.ini.empty()) {
        json["ini"] = job.ini;
    }
    if (job.instance != "NULL") {
        json["instance"] = job.instance;
    }
    for (const auto& [key, value] : job.set) {
        json["set"][key] = value;
    }
    if (!job.clip.empty()) {
        json["clip"] = job.clip;
        json["frame"] = job.frame;
    }
    if (job.raw) {
        const ClipFormat& format = job.raw->format;
        json["raw"] = {{"format", job.raw->name},
                       {"width", format.width},
                       {"height", format.height},
                       {"depth", format.depth}};
    }
    for (const auto& [name, path] : job.image) {
        json[name] = path;
    }
    json["out"] = job.out.empty() ? Json(nullptr) : Json(job.out);
    if (!job.stages.empty()) {
        json["stages"] = job.stages;
    }
    if (!job.expect.empty()) {
        json["expect"] = job.expect;
    }
    try {
        return json.dump();
    } catch (const Json::exception&) {
        throw Cannot("job " + job.id + " has a name that is no UTF-8");
    }
}

std::pair<std::string, std::string> split_id(const std::string& id) {
    const size_t at = id.rfind('@');
    return at == id.npos ? std::pair(id, std::string("-")) : std::pair(id.substr(0, at), id.substr(at + 1));
}

uint64_t digest_of(std::string_view text) {
    sha256_ctx hash;
    sha256_init(&hash);
    sha256_update(&hash, text.size(), reinterpret_cast<const uint8_t*>(text.data()));
    uint8_t bytes[8];
    sha256_digest(&hash, sizeof bytes, bytes);
    uint64_t digest = 0;
    for (const uint8_t byte : bytes) {
        digest = digest << 8 | byte;
    }
    return digest;
}

std::string hex_of(uint64_t digest) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(digest));
    return text;
}

}  // namespace eetool
