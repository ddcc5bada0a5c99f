#include "job_list.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <unordered_map>
#include <unordered_set>

#include "cmodel.h"
#include "result.h"
#include "settings.h"
#include "stage_files.h"

namespace eetool {
namespace {

namespace fs = std::filesystem;

using Assignment = std::pair<std::string, int32_t>;
using Images = std::vector<std::pair<std::string, std::string>>;

struct Frame {
    std::string label;
    Images images;
    std::string clip;
    uint64_t number = 0;
};

struct Setting {
    std::string label, ini;
    std::vector<Assignment> set;
};

void require_file(const std::string& path) {
    std::error_code error;
    if (!fs::is_regular_file(path, error)) {
        throw Cannot(path + " is missing");
    }
}

// Ids tell frame and setting apart at their last '@'.
std::string label_of(const std::string& path) {
    std::string label = fs::path(path).replace_extension().string();
    std::replace(label.begin(), label.end(), '@', '_');
    return label;
}

// ---- Patterns ----

// A path with a number, "%d" or "%05d", and perhaps with a list of planes, "{y,cb,cr}" or
// "{y=luma,cb=u,cr=v}".
class Pattern {
  public:
    explicit Pattern(const std::string& text) : text_(text) {
        number_ = text.find('%');
        size_t at = number_ == text.npos ? text.size() : number_ + 1;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9' && digits_ < 20) {
            digits_ = 10 * digits_ + static_cast<size_t>(text[at++] - '0');
        }
        if (at >= text.size() || text[at] != 'd' || text.find('%', at) != text.npos || digits_ > 20) {
            throw Cannot("pattern " + text + " has not one number, as %d or %05d");
        }
        after_ = at + 1;
        open_ = text.find('{');
        if (open_ == text.npos) {
            return;
        }
        close_ = text.find('}', open_);
        if (close_ == text.npos || text.find('{', open_ + 1) != text.npos ||
            (open_ < number_ && number_ < close_)) {
            throw Cannot("pattern " + text + " has not one list of planes, as {y,cb,cr}");
        }
        for (size_t begin = open_ + 1, end; begin <= close_; begin = end + 1) {
            end = std::min(text.find(',', begin), close_);
            const std::string item = text.substr(begin, end - begin);
            const size_t equals = item.find('=');
            planes_.emplace_back(item.substr(0, equals),
                                 equals == item.npos ? item : item.substr(equals + 1));
        }
    }

    const Images& planes() const { return planes_; }

    // The path of a number, the list replaced by `plane`.
    std::string path(uint64_t number, const std::string& plane) const {
        std::string digits = std::to_string(number);
        digits.insert(0, digits_ - std::min(digits_, digits.size()), '0');
        std::string path;
        for (size_t at = 0; at < text_.size();) {
            if (at == number_) {
                path += digits;
                at = after_;
            } else if (at == open_) {
                path += plane;
                at = close_ + 1;
            } else {
                path += text_[at++];
            }
        }
        return path;
    }

    // The least and the greatest number of the files that are there.
    std::pair<uint64_t, uint64_t> range() const {
        const std::string plane = planes_.empty() ? "" : planes_[0].second;
        const fs::path like = path(0, plane);
        if (text_.find('/', number_) != text_.npos) {
            throw Cannot("pattern " + text_ + " numbers directories: give --start and --count");
        }
        // What stands before and after the number in the names.
        const std::string zero = path(0, plane), nine = path(9, plane);
        const size_t slash = zero.rfind('/');
        const std::string name = zero.substr(slash + 1);
        size_t last = zero.size();
        while (zero[last - 1] == nine[last - 1]) {
            --last;
        }
        const size_t tail = zero.size() - last;
        const size_t head = name.size() - tail - std::max<size_t>(digits_, 1);
        uint64_t least = std::numeric_limits<uint64_t>::max(), greatest = 0;
        std::error_code error;
        const fs::path directory = like.parent_path().empty() ? "." : like.parent_path();
        for (const auto& entry : fs::directory_iterator(directory, error)) {
            const std::string found = entry.path().filename().string();
            uint64_t number = 0;
            if (found.size() <= head + tail || found.substr(0, head) != name.substr(0, head) ||
                found.substr(found.size() - tail) != name.substr(name.size() - tail)) {
                continue;
            }
            const char* const end = found.data() + found.size() - tail;
            const auto parsed = std::from_chars(found.data() + head, end, number);
            if (parsed.ec == std::errc() && parsed.ptr == end &&
                fs::path(path(number, plane)).filename() == found) {
                least = std::min(least, number);
                greatest = std::max(greatest, number);
            }
        }
        if (least > greatest) {
            throw Cannot("no file has a name like " + zero);
        }
        return {least, greatest};
    }

  private:
    const std::string text_;
    size_t number_ = std::string::npos, after_ = 0, digits_ = 0;
    size_t open_ = std::string::npos, close_ = 0;
    Images planes_;
};

std::string shorten(std::string label) {
    while (!label.empty() && std::string("_-.").find(label.back()) != std::string::npos) {
        label.pop_back();
    }
    return label;
}

// ---- Frames ----

class Frames {
  public:
    explicit Frames(const JobListOptions& o) : o_(o) {
        for (const auto& [name, text] :
             {std::pair{"ynr", &o.ynr}, {"mmap", &o.mmap}, {"yfusion", &o.yfusion}}) {
            if (!text->empty()) {
                beside_.emplace_back(name, Pattern(*text));
            }
        }
    }

    void for_each(const std::function<void(const Frame&)>& take) const {
        if (!o_.frames.empty()) {
            number_frames(take);
        }
        for (const std::string& path : o_.clips) {
            walk_clip(path, take);
        }
        uint64_t index = 0;
        for (const std::string& path : o_.photos) {
            Frame frame{label_of(path), {{"photo", path}}, "", index};
            require_file(path);
            add_beside(frame, index++);
            take(frame);
        }
    }

  private:
    void number_frames(const std::function<void(const Frame&)>& take) const {
        const Pattern pattern(o_.frames);
        uint64_t first = o_.start.value_or(0), count = o_.count.value_or(0);
        if (!o_.start || !o_.count) {
            const auto [least, greatest] = pattern.range();
            first = o_.start.value_or(least);
            count = o_.count.value_or(greatest >= first ? greatest - first + 1 : 0);
        }
        for (uint64_t number = first; number - first < count; ++number) {
            Frame frame;
            std::string label = label_of(pattern.path(number, ""));
            frame.label = shorten(label);
            if (pattern.planes().empty()) {
                frame.images.emplace_back("rgb", pattern.path(number, ""));
            }
            for (const auto& [plane, name] : pattern.planes()) {
                frame.images.emplace_back(plane, pattern.path(number, name));
            }
            for (const auto& [name, path] : frame.images) {
                require_file(path);
            }
            add_beside(frame, number);
            take(frame);
        }
    }

    void walk_clip(const std::string& path, const std::function<void(const Frame&)>& take) const {
        ClipFile clip(path, o_.raw);
        const uint64_t frames = clip.count(), first = o_.start.value_or(0);
        const uint64_t count = o_.count.value_or(frames - std::min(first, frames));
        if (first > frames || count > frames - first || frames == 0) {
            throw Cannot(path + " has " + std::to_string(frames) + " frames");
        }
        for (uint64_t number = first; number < first + count; ++number) {
            char text[24];
            std::snprintf(text, sizeof text, "#%05llu", static_cast<unsigned long long>(number));
            Frame frame{label_of(path) + text, {}, path, number};
            add_beside(frame, number);
            take(frame);
        }
    }

    void add_beside(Frame& frame, uint64_t number) const {
        for (const auto& [name, pattern] : beside_) {
            const std::string path = pattern.path(number, "");
            require_file(path);
            frame.images.emplace_back(name, path);
        }
    }

    const JobListOptions& o_;
    std::vector<std::pair<std::string, Pattern>> beside_;
};

// ---- Settings ----

int32_t value_of(const std::string& assignment, const std::string& text) {
    int32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw Cannot(assignment + ": the value is no decimal integer");
    }
    return value;
}

// KEY=VALUE or KEY=VALUE,...; the values fit the register.
std::vector<Assignment> parse_values(const std::string& text) {
    const size_t equals = text.find('=');
    const std::string key = text.substr(0, equals);
    const int index = cmodel_find_register(key.c_str());
    if (index < 0 || equals == text.npos) {
        throw Cannot(text + (index < 0 ? ": there is no such register" : ": give KEY=VALUE"));
    }
    const cmodel_register_info& info = *cmodel_register(index);
    std::vector<Assignment> values;
    for (size_t begin = equals + 1, end; begin <= text.size(); begin = end + 1) {
        end = std::min(text.find(',', begin), text.size());
        const int32_t value = value_of(text, text.substr(begin, end - begin));
        if (value < info.least || value > info.greatest) {
            throw Cannot(text + ": " + std::to_string(value) + " does not fit " + std::to_string(info.least) +
                         ".." + std::to_string(info.greatest));
        }
        values.emplace_back(key, value);
    }
    return values;
}

void assign(std::vector<Assignment>& set, const Assignment& assignment) {
    const auto same =
        std::find_if(set.begin(), set.end(), [&](const auto& a) { return a.first == assignment.first; });
    if (same != set.end()) {
        same->second = assignment.second;
    } else {
        set.push_back(assignment);
    }
}

// The setting with this place among all; `number` counts from 0.
class Settings {
  public:
    explicit Settings(const JobListOptions& o) : o_(o) {
        for (const std::string& text : o.sweeps) {
            sweeps_.push_back(parse_values(text));
        }
        for (const std::string& text : o.set) {
            set_.push_back(parse_assignment(text));
        }
        std::unordered_set<std::string> stems;
        for (const std::string& ini : o.inis) {
            require_file(ini);
            ini_labels_.push_back(fs::path(label_of(ini)).filename().string());
            stems.insert(ini_labels_.back());
        }
        if (stems.size() < o.inis.size()) {  // names alone do not tell them apart
            std::transform(o.inis.begin(), o.inis.end(), ini_labels_.begin(), label_of);
        }
        count_ = std::max<uint64_t>(o.inis.size(), 1) * std::max<uint64_t>(o.random, 1);
        for (const auto& values : sweeps_) {
            count_ *= values.size();
        }
    }

    uint64_t count() const { return count_; }

    Setting at(uint64_t number) const {
        Setting setting;
        setting.label = "defaults";
        // The last sweep changes fastest, the register file slowest.
        std::vector<const Assignment*> swept(sweeps_.size());
        for (size_t k = sweeps_.size(); k-- > 0; number /= sweeps_[k].size()) {
            swept[k] = &sweeps_[k][number % sweeps_[k].size()];
        }
        if (o_.random > 0) {
            const uint64_t seed = o_.seed + number;
            const cm::Registers registers = random_setting(seed);
            for (const int slot : changed_slots(registers)) {
                setting.set.emplace_back(cm::kRegTable[slot].key, registers[slot]);
            }
            setting.label = "random-" + std::to_string(seed);
        } else if (!o_.inis.empty()) {
            setting.ini = o_.inis[number];
            setting.label = ini_labels_[number];
        }
        for (const Assignment& assignment : set_) {
            assign(setting.set, assignment);
        }
        for (const Assignment* const assignment : swept) {
            assign(setting.set, *assignment);
            setting.label += "+" + assignment->first + "=" + std::to_string(assignment->second);
        }
        return setting;
    }

  private:
    const JobListOptions& o_;
    std::vector<std::vector<Assignment>> sweeps_;
    std::vector<Assignment> set_;
    std::vector<std::string> ini_labels_;
    uint64_t count_ = 1;
};

void check_fusion(const Job& job) {
    const auto mode = std::find_if(job.set.begin(), job.set.end(),
                                   [](const auto& a) { return a.first == "reg_ee_texture_mode"; });
    const bool texture = mode == job.set.end() || mode->second == 1;
    const bool fused = std::any_of(job.image.begin(), job.image.end(),
                                   [](const auto& i) { return i.first == "yfusion" || i.first == "photo"; });
    if (job.pipeline == "pre_ee" && job.ini.empty() && texture && job.clip.empty() && !fused) {
        throw Cannot(job.id +
                     " has no fused luma, which reg_ee_texture_mode = 1 needs: name it, or give --set "
                     "reg_ee_texture_mode=0");
    }
}

using Sha256 = std::array<char, 64>;

std::string file_name_of(std::string label) {
    std::replace(label.begin(), label.end(), '/', '_');
    return label;
}

}  // namespace

std::pair<std::string, int32_t> parse_assignment(const std::string& text) {
    const std::vector<Assignment> values = parse_values(text);
    if (values.size() != 1) {
        throw Cannot(text + ": give one value");
    }
    return values[0];
}

void make_jobs(const JobListOptions& o, const std::function<void(const Job&)>& take) {
    std::unordered_map<uint64_t, Sha256> expected;
    if (!o.expect_from.empty()) {
        ResultSet({o.expect_from}).for_each([&](const Result& r) {
            if (r.outcome != Outcome::kFailed && r.sha256.size() == 64) {
                std::copy(r.sha256.begin(), r.sha256.end(), expected[digest_of(r.id)].begin());
            }
        });
    }
    const Settings settings(o);
    std::unordered_set<uint64_t> ids;
    uint64_t jobs = 0;
    Frames(o).for_each([&](const Frame& frame) {
        for (uint64_t k = 0; k < settings.count(); ++k) {
            const Setting setting = settings.at(k);
            Job job;
            job.id = frame.label + "@" + setting.label;
            if (!ids.insert(digest_of(job.id)).second) {
                throw Cannot("two jobs would be called " + job.id);
            }
            job.pipeline = o.pipeline;
            job.ini = setting.ini;
            job.instance = o.instance;
            job.set = setting.set;
            job.image = frame.images;
            job.clip = frame.clip;
            job.frame = frame.number;
            job.raw = frame.clip.empty() ? std::nullopt : o.raw;
            job.stages = o.stages;
            if (!o.out_dir.empty()) {
                job.out =
                    o.out_dir + "/" + file_name_of(setting.label) + "/" + file_name_of(frame.label) + ".pgm";
            }
            if (!o.expect_from.empty()) {
                const auto sha256 = expected.find(digest_of(job.id));
                if (sha256 == expected.end()) {
                    throw Cannot(o.expect_from + " has no hash of job " + job.id);
                }
                job.expect.assign(sha256->second.begin(), sha256->second.end());
            }
            check_fusion(job);
            ++jobs;
            take(job);
        }
    });
    if (jobs == 0) {
        throw Cannot("there is no frame: give --frames, --clip or --photo");
    }
}

double mean_ms(const std::string& results) {
    double sum = 0;
    uint64_t count = 0;
    ResultSet({results}).for_each([&](const Result& r) {
        sum += r.outcome == Outcome::kFailed ? 0 : r.ms;
        count += r.outcome == Outcome::kFailed ? 0 : 1;
    });
    if (count == 0 || sum <= 0) {
        throw Cannot(results + " has no time of a job that ran to its end");
    }
    return sum / static_cast<double>(count);
}

uint64_t count_shards(const std::string& list, double ms_a_job, int cores, double minutes, uint64_t most) {
    uint64_t jobs = 0;
    read_lines(list, [&](std::string_view line, uint64_t, uint64_t) {
        jobs += line.find_first_not_of(" \t\r") != line.npos ? 1 : 0;
    });
    const double shards = static_cast<double>(jobs) * ms_a_job / cores / (minutes * 60000);
    return std::max<uint64_t>(1, std::min(most, static_cast<uint64_t>(shards)));
}

}  // namespace eetool
