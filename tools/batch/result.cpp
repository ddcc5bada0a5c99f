#include "result.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>

#include "cmodel.h"
#include "job.h"
#include "stage_files.h"
#include "whole_file.h"

namespace eetool {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t kMostLine = size_t{1} << 26;
constexpr const char* kNames[] = {"ok", "failed", "unlike"};

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};

Cannot unreadable(const std::string& path) {
    return Cannot(path + " cannot be read: " + std::strerror(errno));
}

}  // namespace

const char* name_of(Outcome outcome) {
    return kNames[static_cast<int>(outcome)];
}

std::string line_of(const Result& r, bool with_times) {
    Json json;
    json["line"] = r.line;
    json["id"] = r.id;
    json["status"] = name_of(r.outcome);
    if (!r.sha256.empty()) {
        json["sha256"] = r.sha256;
    }
    for (const auto& [name, sha256] : r.stages) {
        json["stages"][name] = sha256;
    }
    if (with_times) {
        json["ms"] = std::round(r.ms * 1000) / 1000;
    }
    json["version"] = r.version;
    json["job"] = r.job;
    if (with_times) {
        json["inputs"] = r.inputs;
    }
    if (!r.message.empty()) {
        json["message"] = r.message;
    }
    if (!r.repeat.empty()) {
        json["repeat"] = r.repeat;
    }
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

Result parse_result(std::string_view line) try {
    const Json json = Json::parse(line.begin(), line.end());
    Result r;
    r.line = json.at("line").get<uint64_t>();
    r.id = json.at("id").get<std::string>();
    const std::string status = json.at("status").get<std::string>();
    const auto* const name = std::find(std::begin(kNames), std::end(kNames), status);
    if (name == std::end(kNames)) {
        throw Cannot("there is no status " + status);
    }
    r.outcome = static_cast<Outcome>(name - kNames);
    r.sha256 = json.value("sha256", "");
    if (json.contains("stages")) {
        for (const auto& [stage, sha256] : json["stages"].items()) {
            r.stages.emplace_back(stage, sha256.get<std::string>());
        }
    }
    r.ms = json.value("ms", 0.0);
    r.version = json.value("version", "");
    r.job = json.value("job", "");
    r.inputs = json.value("inputs", "");
    r.message = json.value("message", "");
    r.repeat = json.value("repeat", "");
    return r;
} catch (const Json::exception&) {
    throw Cannot("this is no result");
}

void read_lines(const std::string& path,
                const std::function<void(std::string_view line, uint64_t at, uint64_t number)>& take) {
    const std::unique_ptr<FILE, CloseFile> file(std::fopen(path.c_str(), "rb"));
    if (file == nullptr) {
        throw unreadable(path);
    }
    struct Line {
        ~Line() { std::free(text); }
        char* text = nullptr;
        size_t room = 0;
    } line;
    uint64_t at = 0;
    errno = 0;
    for (uint64_t number = 1;; ++number) {
        const ssize_t length = getline(&line.text, &line.room, file.get());
        if (length < 0 && std::ferror(file.get()) != 0) {
            throw unreadable(path);
        }
        if (length <= 0 || line.text[length - 1] != '\n') {
            return;
        }
        take({line.text, static_cast<size_t>(length) - 1}, at, number);
        at += static_cast<uint64_t>(length);
    }
}

// ---- One file that grows ----

void ResultFile::fail(const char* what) const {
    throw Cannot((path_.empty() ? "standard output" : path_) + " " + what + ": " + std::strerror(errno));
}

ResultFile::ResultFile(const std::string& path, bool go_on)
    : path_(path),
      fd_(path.empty() ? STDOUT_FILENO : open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666)) {
    if (path.empty()) {
        return;
    }
    struct stat info {};
    if (fd_ < 0 || fstat(fd_, &info) != 0) {
        fail("cannot be written");
    }
    is_file_ = S_ISREG(info.st_mode);
    if (!is_file_) {
        return;
    }
    if (flock(fd_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        throw Cannot(path + " is being written by another run");
    }
    size_ = info.st_size;
    if (size_ > 0 && !go_on) {
        throw Cannot(path + " has results already; give --resume to go on, or another name");
    }
    // The end of the last whole line.
    char block[1 << 16];
    int64_t end = size_;
    while (end > 0) {
        const size_t part = static_cast<size_t>(std::min<int64_t>(end, sizeof block));
        if (pread(fd_, block, part, end - static_cast<int64_t>(part)) != static_cast<ssize_t>(part)) {
            fail("cannot be read");
        }
        const void* const last = memrchr(block, '\n', part);
        if (last != nullptr) {
            end += static_cast<const char*>(last) - block + 1 - static_cast<int64_t>(part);
            break;
        }
        end -= static_cast<int64_t>(part);
    }
    if (end != size_ && ftruncate(fd_, end) != 0) {
        fail("cannot be cut to whole lines");
    }
    size_ = end;
}

void ResultFile::append(const std::string& line) {
    for (size_t done = 0; done < line.size();) {
        const ssize_t n = ::write(fd_, line.data() + done, line.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 || (is_file_ && static_cast<size_t>(n) < line.size())) {
            const int error = n < 0 ? errno : ENOSPC;
            if (is_file_) {
                [[maybe_unused]] const int result = ftruncate(fd_, size_);
            }
            errno = error;
            fail("cannot be written");
        }
        done += static_cast<size_t>(n);
    }
    size_ += static_cast<int64_t>(line.size());
}

// ---- Several files ----

ResultSet::ResultSet(const std::vector<std::string>& paths) : paths_(paths) {
    std::unordered_map<uint64_t, size_t> by_id;
    for (size_t k = 0; k < paths.size(); ++k) {
        read_lines(paths[k], [&](std::string_view line, uint64_t at, uint64_t number) {
            const auto fail = [&](const std::string& what) {
                throw Cannot(paths[k] + ":" + std::to_string(number) + ": " + what);
            };
            Result r;
            try {
                r = parse_result(line);
            } catch (const Cannot& e) {
                fail(e.what());
            }
            if (line.size() > kMostLine) {
                fail("no result is as long");
            }
            const Place place{r.line, digest_of(r.id), at, static_cast<uint32_t>(k),
                              static_cast<uint32_t>(line.size())};
            const auto [found, added] = by_id.try_emplace(place.id, places_.size());
            if (added) {
                places_.push_back(place);
            } else if (places_[found->second].line != place.line) {
                fail("job " + r.id + " stands in line " + std::to_string(place.line) +
                     " of its list here and in another before: these are results of different lists");
            } else {
                places_[found->second] = place;
            }
        });
    }
    std::sort(places_.begin(), places_.end(), [](const Place& a, const Place& b) { return a.line < b.line; });
    for (size_t i = 1; i < places_.size(); ++i) {
        if (places_[i].line == places_[i - 1].line) {
            throw Cannot("line " + std::to_string(places_[i].line) + " of the list has one job in " +
                         paths[places_[i - 1].file] + " and another in " + paths[places_[i].file] +
                         ": these are results of different lists");
        }
    }
    for (const std::string& path : paths) {
        files_.push_back(std::make_unique<Fd>(open(path.c_str(), O_RDONLY | O_CLOEXEC)));
    }
}

void ResultSet::for_each(const std::function<void(const Result&)>& take) const {
    std::string line;
    for (const Place& place : places_) {
        line.resize(place.size);
        if (pread(*files_[place.file], line.data(), line.size(), static_cast<off_t>(place.at)) !=
            static_cast<ssize_t>(line.size())) {
            throw unreadable(paths_[place.file]);
        }
        take(parse_result(line));
    }
}

// ---- Earlier runs ----

void EarlierResults::add(const std::string& path) {
    const std::string version = cmodel_version();
    read_lines(path, [&](std::string_view line, uint64_t, uint64_t number) {
        try {
            const Result r = parse_result(line);
            entries_[digest_of(r.id)] = {std::strtoull(r.job.c_str(), nullptr, 16),
                                         std::strtoull(r.inputs.c_str(), nullptr, 16),
                                         r.outcome == Outcome::kOk, r.version == version};
        } catch (const Cannot& e) {
            throw Cannot(path + ":" + std::to_string(number) + ": " + e.what());
        }
    });
}

const EarlierResults::Entry* EarlierResults::find(const std::string& id) const {
    const auto found = entries_.find(digest_of(id));
    return found != entries_.end() ? &found->second : nullptr;
}

// ---- JUnit ----

namespace {

std::string xml_of(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            default:
                escaped += static_cast<unsigned char>(c) < ' ' ? '?' : c;
        }
    }
    return escaped;
}

}  // namespace

void write_junit(const std::string& path, const ResultSet& results) {
    size_t failed = 0, unlike = 0;
    double ms = 0;
    results.for_each([&](const Result& r) {
        failed += r.outcome == Outcome::kFailed;
        unlike += r.outcome == Outcome::kUnlike;
        ms += r.ms;
    });
    WholeFile file(path);
    FILE* const out = file.stream();
    std::fprintf(out,
                 "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                 "<testsuite name=\"eetool batch\" tests=\"%zu\" failures=\"%zu\" errors=\"%zu\" "
                 "time=\"%.3f\">\n",
                 results.size(), unlike, failed, ms / 1000);
    results.for_each([&](const Result& r) {
        const auto [frame, setting] = split_id(r.id);
        std::fprintf(out, "  <testcase classname=\"%s\" name=\"%s\" time=\"%.6f\"", xml_of(setting).c_str(),
                     xml_of(frame).c_str(), r.ms / 1000);
        if (r.outcome == Outcome::kOk) {
            std::fputs("/>\n", out);
            return;
        }
        const char* const kind = r.outcome == Outcome::kFailed ? "error" : "failure";
        std::fprintf(out, ">\n    <%s message=\"%s\">%s</%s>\n  </testcase>\n", kind,
                     xml_of(r.message).c_str(), xml_of(r.repeat).c_str(), kind);
    });
    std::fputs("</testsuite>\n", out);
    file.finish();
}

}  // namespace eetool
