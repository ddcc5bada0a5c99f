// eetool diff: the first stage, and in it the first sample, in which two dumps of one frame differ.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "compare.h"
#include "model_run.h"

namespace eetool {
namespace {

using Json = nlohmann::ordered_json;

struct Options {
    std::string expected, actual, size, map, junit;
    std::vector<std::string> stage, bits;
    int64_t tolerance = 0;
    bool all = false, keep_going = false, json = false;
};

// One side: a directory of stages, or one file.
struct Side {
    std::string path;
    bool is_directory = false;
    Json record;                              // of run.json, or null
    std::map<std::string, std::string> file;  // by stage
    std::vector<std::string> others;          // files that look like stages and are none
};

enum class Verdict { kEqual, kDifferent, kMissing, kCannot };
const char* const kVerdicts[] = {"equal", "different", "missing", "not comparable"};

struct StageResult {
    std::string name;
    Verdict verdict = Verdict::kEqual;
    Difference difference;
    std::string why;  // not comparable or missing
};

bool is_directory(const std::string& path) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0) {
        throw Cannot(path + " cannot be read: " + std::strerror(errno));
    }
    return S_ISDIR(info.st_mode);
}

std::string directory_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == path.npos ? "." : path.substr(0, slash);
}

// "17_mf_delta.npy" and "mf_delta.hex" are both mf_delta.
std::string stage_of(const std::string& path) {
    std::string name = path.substr(path.rfind('/') + 1);
    name = name.substr(0, name.rfind('.'));
    const size_t letter = name.find_first_not_of("0123456789");
    return letter != 0 && letter != name.npos && name[letter] == '_' ? name.substr(letter + 1) : name;
}

Json read_record(const std::string& directory) {
    const std::string path = directory + "/run.json";
    if (access(path.c_str(), F_OK) != 0) {
        return {};
    }
    Json record = Json::parse(read_text(path), nullptr, false);
    const auto is = [&](const char* key, bool (Json::*test)() const noexcept) {
        return record.contains(key) && (record[key].*test)();
    };
    if (!record.is_object() || !is("pipeline", &Json::is_string) || !is("width", &Json::is_number_integer) ||
        !is("height", &Json::is_number_integer) || !is("registers", &Json::is_object)) {
        throw Cannot(path + " is no record of a run");
    }
    for (const char* const side : {"width", "height"}) {
        if (record[side] < 1 || record[side] > 1 << 30) {
            throw Cannot(path + " has a " + side + " that no frame has");
        }
    }
    return record;
}

Side look_at(const std::string& path) {
    Side side{path, is_directory(path), {}, {}, {}};
    side.record = read_record(side.is_directory ? path : directory_of(path));
    if (!side.is_directory) {
        return side;
    }
    DIR* const directory = opendir(path.c_str());
    if (directory == nullptr) {
        throw Cannot(path + " cannot be read: " + std::strerror(errno));
    }
    std::set<std::string> names;
    while (const dirent* const entry = readdir(directory)) {
        names.insert(entry->d_name);
    }
    closedir(directory);
    for (const std::string& name : names) {
        const std::string stage = stage_of(name);
        if (!format_of(name)) {
            continue;
        }
        std::string whole = path;
        whole.append("/").append(name);
        if (find_stage(stage) == nullptr) {
            side.others.push_back(whole);
        } else if (const auto [it, is_new] = side.file.emplace(stage, whole); !is_new) {
            whole.append(" and ").append(it->second).append(" are both stage ").append(stage);
            throw Cannot(whole);
        }
    }
    if (side.file.empty()) {
        throw Cannot(path + " has no stages");
    }
    return side;
}

class Diff {
  public:
    explicit Diff(const Options& o) : o_(o), expected_(look_at(o.expected)), actual_(look_at(o.actual)) {
        if (expected_.is_directory != actual_.is_directory) {
            throw Cannot("one of " + o.expected + " and " + o.actual + " is a directory, the other is not");
        }
        read_options();
        choose_pipeline();
    }

    int go() {
        choose_stages();
        for (StageResult& result : results_) {
            compare(result);
        }
        if (!o_.map.empty()) {
            write_maps();
        }
        if (!o_.junit.empty()) {
            write_text(o_.junit, junit());
        }
        o_.json ? print_json() : print_text();
        return status();
    }

  private:
    // ---- What is compared ----

    void read_options() {
        if (!o_.size.empty()) {
            int width = 0, height = 0, end = 0;
            if (std::sscanf(o_.size.c_str(), "%9dx%9d%n", &width, &height, &end) != 2 || width < 1 ||
                height < 1 || o_.size.c_str()[end] != '\0') {
                throw CLI::ValidationError("--size", o_.size + ": give WIDTHxHEIGHT");
            }
            size_ = {width, height};
        } else {
            for (const Json* const record : {&expected_.record, &actual_.record}) {
                if (!size_ && record->is_object()) {
                    size_ = {(*record)["width"].get<int>(), (*record)["height"].get<int>()};
                }
            }
        }
        for (const std::string& item : o_.bits) {
            const size_t equals = item.find('=');
            const std::string name = equals == item.npos ? "" : item.substr(0, equals);
            const int bits = std::atoi(item.substr(equals == item.npos ? 0 : equals + 1).c_str());
            if (bits < 1 || bits > 32 || (!name.empty() && find_stage(name) == nullptr)) {
                throw CLI::ValidationError("--bits", item + ": give STAGE=1..32");
            }
            bits_[name] = bits;
        }
    }

    // Of the records; without any, the first pipeline that has all stages.
    void choose_pipeline() {
        for (const Side* const side : {&expected_, &actual_}) {
            if (!side->record.is_object()) {
                continue;
            }
            const std::string name = side->record["pipeline"].get<std::string>();
            if (cmodel_stage_count(name.c_str()) == 0) {
                throw Cannot(side->path + " is of a pipeline that is not known: " + name);
            }
            if (!pipeline_.empty() && name != pipeline_) {
                throw Cannot(o_.expected + " is of pipeline " + pipeline_ + ", " + o_.actual + " of " + name);
            }
            pipeline_ = name;
        }
        for (int i = 0; pipeline_.empty() && cmodel_pipeline(i) != nullptr; ++i) {
            const bool has_all =
                std::all_of(expected_.file.begin(), expected_.file.end(), [&](const auto& entry) {
                    return cmodel_find_stage(cmodel_pipeline(i), entry.first.c_str()) >= 0;
                });
            pipeline_ = has_all ? cmodel_pipeline(i) : "";
        }
        if (pipeline_.empty()) {
            throw Cannot(o_.expected + " has stages of both pipelines");
        }
    }

    bool is_asked_for(const std::string& name) const {
        return o_.stage.empty() || std::find(o_.stage.begin(), o_.stage.end(), name) != o_.stage.end();
    }

    void choose_stages() {
        for (const std::string& name : o_.stage) {
            if (cmodel_find_stage(pipeline_.c_str(), name.c_str()) < 0) {
                throw CLI::ValidationError("--stage", "pipeline " + pipeline_ + " has no stage " + name);
            }
        }
        if (!expected_.is_directory) {
            choose_files();
            return;
        }
        for (int i = 0; i < cmodel_stage_count(pipeline_.c_str()); ++i) {
            const std::string name = cmodel_stage(pipeline_.c_str(), i)->name;
            const bool here = expected_.file.contains(name), there = actual_.file.contains(name);
            if (!is_asked_for(name) || (!here && !there && o_.stage.empty())) {
                continue;
            }
            StageResult result{name, here && there ? Verdict::kEqual : Verdict::kMissing, {}, ""};
            if (!here || !there) {
                result.why = "not in " + (here ? o_.actual : o_.expected);
            }
            results_.push_back(result);
        }
    }

    // Two files: the stage that they are of, if that is known.
    void choose_files() {
        if (o_.stage.size() > 1) {
            throw CLI::ValidationError("--stage", "two files are of one stage");
        }
        std::string name = o_.stage.empty() ? stage_of(o_.expected) : o_.stage[0];
        if (o_.stage.empty() && find_stage(name) == nullptr) {
            name = stage_of(o_.actual);
        }
        if (find_stage(name) == nullptr) {
            name = stage_of(o_.expected);
        }
        expected_.file[name] = o_.expected;
        actual_.file[name] = o_.actual;
        results_.push_back({name, Verdict::kEqual, {}, ""});
    }

    Expected expected_of(const std::string& name) const {
        const auto bits = bits_.contains(name) ? bits_.find(name) : bits_.find("");
        return {find_stage(name), size_, bits != bits_.end() ? bits->second : 0};
    }

    // Both files of a stage, opened. A file without a size takes that of the other.
    struct Pair {
        std::unique_ptr<StageFile> expected, actual;
    };
    Pair open(const std::string& name) const {
        const std::string &here = expected_.file.at(name), &there = actual_.file.at(name);
        Expected known = expected_of(name);
        const auto says_size = [](const std::string& path) {
            return format_of(path) == Format::kNpy || format_of(path) == Format::kPgm;
        };
        Pair pair;
        if (!known.size && !says_size(here) && says_size(there)) {
            pair.actual = std::make_unique<StageFile>(there, known);
            known.size = pair.actual->size();
        }
        pair.expected = std::make_unique<StageFile>(here, known);
        if (pair.actual == nullptr) {
            known.size = known.size         ? known.size
                         : says_size(there) ? std::nullopt
                                            : std::optional(pair.expected->size());
            pair.actual = std::make_unique<StageFile>(there, known);
        }
        return pair;
    }

    void compare(StageResult& result) {
        if (result.verdict == Verdict::kMissing) {
            return;
        }
        try {
            const Pair pair = open(result.name);
            result.difference = compare_files(*pair.expected, *pair.actual, o_.tolerance);
            result.verdict = result.difference.differ > 0 ? Verdict::kDifferent : Verdict::kEqual;
        } catch (const Cannot& e) {
            if (!o_.keep_going) {
                throw;
            }
            std::fprintf(stderr, "eetool: %s\n", e.what());
            result.verdict = Verdict::kCannot;
            result.why = e.what();
        }
    }

    int status() const {
        int status = kOk;
        for (const StageResult& result : results_) {
            const bool needed = o_.all || !o_.stage.empty();
            if (result.verdict == Verdict::kCannot || (result.verdict == Verdict::kMissing && needed)) {
                return kCannot;
            }
            status = result.verdict == Verdict::kDifferent ? int{kFindings} : status;
        }
        const bool none = std::all_of(results_.begin(), results_.end(),
                                      [](const auto& r) { return r.verdict == Verdict::kMissing; });
        return none ? int{kCannot} : status;
    }

    void write_maps() const {
        if (mkdir(o_.map.c_str(), 0777) != 0 && errno != EEXIST) {
            throw Cannot(o_.map + " cannot be made: " + std::strerror(errno));
        }
        for (const StageResult& result : results_) {
            if (result.verdict == Verdict::kDifferent) {
                const Pair pair = open(result.name);
                write_map(o_.map + "/" + result.name + ".ppm", *pair.expected, *pair.actual, o_.tolerance);
            }
        }
    }

    // ---- What is said of it ----

    const StageResult* find_result(const std::string& name) const {
        const auto it = std::find_if(results_.begin(), results_.end(),
                                     [&](const auto& result) { return result.name == name; });
        return it != results_.end() ? &*it : nullptr;
    }

    std::string first_line(const StageResult& result) const {
        const Difference& d = result.difference;
        return "stage " + result.name + ", x " + std::to_string(d.first_x()) + ", y " +
               std::to_string(d.first_y()) + ": expected " + d.expected + ", actual " + d.actual;
    }

    static std::string bin_text(int bin) {
        const std::string sign = bin < 0 ? "-" : "+";
        const int64_t low = int64_t{1} << (std::abs(bin) - 1), high = 2 * low - 1;
        return bin == 0 ? "0"
                        : sign + std::to_string(low) + (high > low ? ".." + sign + std::to_string(high) : "");
    }

    static std::string figures(const Difference& d) {
        std::ostringstream text;
        text << d.differ << " of " << d.size.samples() << " samples differ, in x " << d.left << ".."
             << d.right << ", y " << d.top << ".." << d.bottom;
        if (d.unknown < d.differ) {
            text << "; largest difference " << d.most << ", mean " << d.mean();
        }
        if (d.unknown > 0) {
            text << "; " << d.unknown << " with unknown digits";
        }
        return text.str();
    }

    void say(const std::string& line) const {
        const std::string note = o_.tolerance > 0 ? " (tolerance " + std::to_string(o_.tolerance) + ")" : "";
        std::printf("%s%s\n", line.c_str(), note.c_str());
    }

    const Json* record() const {
        return expected_.record.is_object() ? &expected_.record
               : actual_.record.is_object() ? &actual_.record
                                            : nullptr;
    }

    // How the setting of the run makes a stage; of two ways, where that is not known, the one there is.
    const cmodel_making* making_of(const std::string& name) const {
        const int at = cmodel_find_stage(pipeline_.c_str(), name.c_str());
        if (at < 0) {
            return nullptr;
        }
        const cmodel_stage_info& info = *cmodel_stage(pipeline_.c_str(), at);
        int mode = info.making[1].block != nullptr ? 1 : 0;
        if (record() != nullptr) {
            mode = register_value("reg_ee_texture_mode") == 1 ? 1 : 0;
        } else if (expected_.is_directory) {
            mode = expected_.file.contains("yfusion_mf") || expected_.file.contains("mf_texture") ? 1 : 0;
        }
        return &info.making[info.making[mode].block != nullptr ? mode : 1 - mode];
    }

    int32_t register_value(const char* key) const {
        const Json& registers = (*record())["registers"];
        const auto it = registers.find(key);
        if (it == registers.end() || !it->is_number_integer()) {
            throw Cannot(std::string("run.json does not give ") + key);
        }
        return it->get<int32_t>();
    }

    // What is known of a plane that the stage is made of.
    std::string state_of(const std::string& name) const {
        if (const StageResult* const result = find_result(name)) {
            return result->verdict == Verdict::kEqual       ? "equal"
                   : result->verdict == Verdict::kDifferent ? "differs"
                   : result->verdict == Verdict::kCannot    ? "not comparable"
                                                            : result->why;
        }
        const auto sha = [&](const Json& record) -> std::string {
            const Json::json_pointer at("/inputs/" + name + "/sha256");
            return record.is_object() && record.contains(at) && record[at].is_string()
                       ? record[at].get<std::string>()
                       : "";
        };
        const std::string here = sha(expected_.record), there = sha(actual_.record);
        return here.empty() || there.empty() ? "not compared" : here == there ? "equal" : "differs";
    }

    void say_window(const StageResult& result) const {
        const Difference& d = result.difference;
        const Pair pair = open(result.name);
        const int x = d.first_x(), y = d.first_y();
        const auto e = read_window(*pair.expected, x - 2, y - 2, x + 2, y + 2);
        const auto a = read_window(*pair.actual, x - 2, y - 2, x + 2, y + 2);
        size_t wide = 6;
        for (const auto* const side : {&e, &a}) {
            for (const auto& row : *side) {
                for (const std::string& sample : row) {
                    wide = std::max(wide, sample.size());
                }
            }
        }
        const auto padded = [&](const std::string& text) {
            return std::string(wide + 1 - std::min(wide + 1, text.size()), ' ') + text;
        };
        for (int side = 0; side < 2; ++side) {
            std::string columns = side == 0 ? "  expected" : "  actual  ";
            for (size_t k = 0; k < e[0].size(); ++k) {
                columns += padded("x " + std::to_string(std::max(x - 2, 0) + static_cast<int>(k)));
            }
            say(columns);
            for (size_t row = 0; row < e.size(); ++row) {
                std::string line = "  y " + std::to_string(std::max(y - 2, 0) + static_cast<int>(row));
                line.resize(std::max(columns.size() - e[0].size() * (wide + 1), line.size()), ' ');
                for (const std::string& sample : (side == 0 ? e : a)[row]) {
                    line += padded(sample);
                }
                say(line);
            }
        }
    }

    void say_stage(const StageResult& result) const {
        const Difference& d = result.difference;
        say("  " + figures(d));
        for (const auto& [bin, count] : d.histogram) {
            say("  actual - expected " + bin_text(bin) + ": " + std::to_string(count));
        }
        say_window(result);
        const cmodel_making* const making = making_of(result.name);
        if (making == nullptr) {
            return;
        }
        say(std::string("  made by ") + making->block + ": " + making->summary);
        std::istringstream planes(making->made_of);
        for (std::string plane; planes >> plane;) {
            say("    of " + plane + ": " + state_of(plane));
        }
        const auto value = [this](const char* key) { return register_value(key); };
        if (record() == nullptr) {
            say(std::string("    registers: ") + (*making->registers != '\0' ? making->registers : "none"));
        } else {
            for (const std::string& line : register_lines(making->registers, value)) {
                say("    " + line);
            }
        }
    }

    // What the records say differently of the runs themselves.
    void say_settings() const {
        if (!expected_.record.is_object() || !actual_.record.is_object()) {
            return;
        }
        for (const auto& [key, value] : expected_.record["registers"].items()) {
            const Json& other = actual_.record["registers"];
            if (other.contains(key) && other[key] != value) {
                say("the runs have different settings: " + key + " is " + value.dump() + " in " +
                    o_.expected + ", " + other[key].dump() + " in " + o_.actual);
            }
        }
        const Json here = expected_.record.value("inputs", Json::object());
        for (const auto& [name, input] : here.items()) {
            if (state_of(name) == "differs") {
                say("the runs have different inputs: " + name);
            }
        }
    }

    void say_list(const std::string& what, Verdict verdict, const std::string& why) const {
        std::string names;
        size_t count = 0;
        for (const StageResult& result : results_) {
            if (result.verdict == verdict && (why.empty() || result.why == why)) {
                names += " " + result.name;
                ++count;
            }
        }
        if (count > 0) {
            say(what + " (" + std::to_string(count) + "):" + names);
        }
    }

    void print_text() const {
        bool is_first = true;
        for (const StageResult& result : results_) {
            if (result.verdict != Verdict::kDifferent) {
                continue;
            }
            say((is_first ? "first difference: " : "also different: ") + first_line(result));
            if (is_first || o_.keep_going) {
                say_stage(result);
            } else {
                say("  " + figures(result.difference));
            }
            is_first = false;
        }
        say_settings();
        say_list("equal", Verdict::kEqual, "");
        say_list("not comparable", Verdict::kCannot, "");
        for (const std::string& side : {o_.expected, o_.actual}) {
            say_list("not in " + side, Verdict::kMissing, "not in " + side);
        }
        for (const Side* const side : {&expected_, &actual_}) {
            for (const std::string& path : side->others) {
                say("not compared, since it is no stage: " + path);
            }
        }
        if (const std::string again = command(); !again.empty() && !is_first) {
            say("the run again: " + again);
        }
    }

    std::string command() const {
        std::string text;
        if (record() != nullptr && record()->contains("command") && (*record())["command"].is_array()) {
            for (const Json& word : (*record())["command"]) {
                text +=
                    (text.empty() ? "" : " ") + (word.is_string() ? shell_word(word.get<std::string>()) : "");
            }
        }
        return text;
    }

    void print_json() const {
        Json all = {{"expected", o_.expected},   {"actual", o_.actual},    {"pipeline", pipeline_},
                    {"tolerance", o_.tolerance}, {"status", status()},     {"first_difference", nullptr},
                    {"command", command()},      {"stages", Json::array()}};
        for (const StageResult& result : results_) {
            const Difference& d = result.difference;
            Json stage = {{"name", result.name}, {"result", kVerdicts[static_cast<int>(result.verdict)]}};
            if (!result.why.empty()) {
                stage["why"] = result.why;
            }
            if (result.verdict == Verdict::kDifferent || result.verdict == Verdict::kEqual) {
                stage["samples"] = d.size.samples();
                stage["differ"] = d.differ;
            }
            if (result.verdict == Verdict::kDifferent) {
                stage["unknown"] = d.unknown;
                stage["first"] = {
                    {"x", d.first_x()}, {"y", d.first_y()}, {"expected", d.expected}, {"actual", d.actual}};
                stage["box"] = {{"left", d.left}, {"top", d.top}, {"right", d.right}, {"bottom", d.bottom}};
                stage["largest"] = d.most;
                stage["mean"] = d.mean();
                for (const auto& [bin, count] : d.histogram) {
                    stage["histogram"][bin_text(bin)] = count;
                }
                if (const cmodel_making* const making = making_of(result.name)) {
                    stage["block"] = making->block;
                    stage["registers"] = making->registers;
                    std::istringstream planes(making->made_of);
                    for (std::string plane; planes >> plane;) {
                        stage["made_of"][plane] = state_of(plane);
                    }
                }
                if (all["first_difference"].is_null()) {
                    all["first_difference"] = result.name;
                }
            }
            all["stages"].push_back(stage);
        }
        std::printf("%s\n", all.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
    }

    static std::string escaped(const std::string& text) {
        std::string out;
        for (const char c : text) {
            out += c == '&'   ? "&amp;"
                   : c == '<' ? "&lt;"
                   : c == '"' ? "&quot;"
                              : std::string(1, static_cast<unsigned char>(c) < 32 ? ' ' : c);
        }
        return out;
    }

    std::string junit() const {
        std::string cases;
        int failures = 0, errors = 0, skipped = 0;
        const bool needed = o_.all || !o_.stage.empty();
        const std::string note = o_.tolerance > 0 ? " (tolerance " + std::to_string(o_.tolerance) + ")" : "";
        for (const StageResult& result : results_) {
            cases +=
                "  <testcase classname=\"" + pipeline_ + "\" name=\"" + escaped(result.name + note) + "\">";
            if (result.verdict == Verdict::kDifferent) {
                ++failures;
                cases += "<failure message=\"" + escaped(first_line(result) + note) + "\">" +
                         escaped(figures(result.difference) + note) + "</failure>";
            } else if (result.verdict == Verdict::kCannot ||
                       (result.verdict == Verdict::kMissing && needed)) {
                ++errors;
                cases += "<error message=\"" + escaped(result.why) + "\"/>";
            } else if (result.verdict == Verdict::kMissing) {
                ++skipped;
                cases += "<skipped message=\"" + escaped(result.why) + "\"/>";
            }
            cases += "</testcase>\n";
        }
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\"eetool diff\" tests=\"" +
               std::to_string(results_.size()) + "\" failures=\"" + std::to_string(failures) +
               "\" errors=\"" + std::to_string(errors) + "\" skipped=\"" + std::to_string(skipped) + "\">\n" +
               cases + "</testsuite>\n";
    }

    const Options& o_;
    Side expected_, actual_;
    std::optional<Size> size_;
    std::map<std::string, int> bits_;  // by stage, "" for all
    std::string pipeline_;
    std::vector<StageResult> results_;
};

std::function<int()> declare(CLI::App& app) {
    const auto o = std::make_shared<Options>();
    app.add_option("expected", o->expected, "stages of the model: a directory, or one file")
        ->option_text("EXPECTED (required)")
        ->required();
    app.add_option("actual", o->actual, "stages of the hardware: a directory, or one file")
        ->option_text("ACTUAL (required)")
        ->required();
    app.add_option("--stage", o->stage, "compare only these; one that is missing gives status 2")
        ->option_text("NAME,...")
        ->delimiter(',')
        ->allow_extra_args(false);
    app.add_flag("--all", o->all, "any stage that one side lacks gives status 2");
    app.add_option("--tolerance", o->tolerance, "samples that are at most this far apart are equal")
        ->option_text("N [0]")
        ->check(CLI::Range(int64_t{0}, int64_t{1} << 32));
    app.add_option("--size", o->size, "size of raw and hexadecimal files, in place of run.json's")
        ->option_text("WIDTHxHEIGHT");
    app.add_option("--bits", o->bits, "bits of a sample in hexadecimal text, in place of 4 a digit")
        ->option_text("[NAME=]N")
        ->allow_extra_args(false);
    app.add_flag("--keep-going", o->keep_going,
                 "tell all of every stage that differs, and go on after one that cannot be compared");
    app.add_option("--map", o->map, "write a picture of the differences of each stage here")
        ->option_text("DIR");
    app.add_flag("--json", o->json, "print the result as JSON");
    app.add_option("--junit", o->junit, "write the result as JUnit's XML")->option_text("FILE");
    return [o] {
        try {
            return Diff(*o).go();
        } catch (const Json::exception& e) {
            throw Cannot(std::string("a run.json is no record of a run: ") + e.what());
        }
    };
}

}  // namespace

const Command kDiff = {
    "diff", "Find the first stage and sample in which two dumps differ",
    "  eetool pattern star --sigma 2 --y y.pgm --cb cb.pgm --cr cr.pgm\n"
    "  eetool run --pipeline classic --y y.pgm --cb cb.pgm --cr cr.pgm --stages model\n"
    "  eetool run --pipeline classic --y y.pgm --cb cb.pgm --cr cr.pgm --stages dump --format hex\n"
    "  eetool diff model dump\n",
    "Files are .npy, .raw or .bin (little-endian), .hex, .mem or .txt ($readmemh), .pgm; a stage's file is\n"
    "NAME or NN_NAME. Status 0: all that was compared is equal; 1: something differs; 2: files that cannot\n"
    "be compared, or a stage is missing that --stage or --all asks for.\n",
    declare};

}  // namespace eetool
