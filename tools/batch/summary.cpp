#include "summary.h"

#include <algorithm>
#include <cstdio>
#include <map>

#include "job.h"

namespace eetool {
namespace {

struct Row {
    uint64_t jobs = 0, failed = 0, unlike = 0;
    double ms = 0;
    void add(const Result& r) {
        ++jobs;
        failed += r.outcome == Outcome::kFailed ? 1 : 0;
        unlike += r.outcome == Outcome::kUnlike ? 1 : 0;
        ms += r.ms;
    }
    uint64_t bad() const { return failed + unlike; }
};

std::string format_row(const std::string& jobs, const std::string& failed, const std::string& unlike,
                       const std::string& ms, const std::string& name) {
    char numbers[120];
    std::snprintf(numbers, sizeof numbers, "%9s %8s %8s %10s  ", jobs.c_str(), failed.c_str(), unlike.c_str(),
                  ms.c_str());
    return numbers + name + "\n";
}

std::string format_ms(double ms) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", ms);
    return text;
}

std::string table_of(const char* what, const std::map<std::string, Row>& rows, size_t most) {
    std::vector<std::pair<std::string, Row>> sorted(rows.begin(), rows.end());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return a.second.bad() > b.second.bad(); });
    std::string text = "\n" + format_row("jobs", "failed", "unlike", "mean ms", what);
    for (size_t i = 0; i < std::min(most, sorted.size()); ++i) {
        const Row& row = sorted[i].second;
        text += format_row(std::to_string(row.jobs), std::to_string(row.failed), std::to_string(row.unlike),
                           format_ms(row.ms / static_cast<double>(row.jobs)), sorted[i].first);
    }
    if (sorted.size() > most) {
        text += "          and " + std::to_string(sorted.size() - most) + " more\n";
    }
    return text;
}

}  // namespace

std::string summary_of(const ResultSet& results, size_t most) {
    constexpr size_t kSlowest = 5;
    Row all;
    std::map<std::string, Row> by_setting, by_frame, by_version;
    std::vector<std::pair<double, std::string>> slowest;
    std::string failures;
    uint64_t told = 0;
    results.for_each([&](const Result& r) {
        const auto [frame, setting] = split_id(r.id);
        all.add(r);
        by_setting[setting].add(r);
        by_frame[frame].add(r);
        by_version[r.version].add(r);
        slowest.emplace_back(r.ms, r.id);
        std::sort(slowest.rbegin(), slowest.rend());
        slowest.resize(std::min(slowest.size(), kSlowest));
        if (r.outcome != Outcome::kOk && told++ < most) {
            failures += r.id + "\n    " + name_of(r.outcome) + ": " + r.message + "\n    " + r.repeat + "\n";
        }
    });
    std::string text = std::to_string(all.jobs) + " jobs: " + std::to_string(all.jobs - all.bad()) + " ok, " +
                       std::to_string(all.failed) + " failed, " + std::to_string(all.unlike) +
                       " unlike what they expect; " + format_ms(all.ms / 1000) + " s in all\n";
    for (const auto& [version, row] : by_version) {
        text += "version " + version +
                (by_version.size() > 1 ? ": " + std::to_string(row.jobs) + " jobs" : std::string()) + "\n";
    }
    text += table_of("setting", by_setting, most) + table_of("frame", by_frame, most);
    text += "\nslowest, ms\n";
    for (const auto& [ms, id] : slowest) {
        char number[32];
        std::snprintf(number, sizeof number, "%10.2f  ", ms);
        text.append(number).append(id).append("\n");
    }
    if (told > 0) {
        text += "\nfailures\n" + failures;
    }
    return told > most ? text + "and " + std::to_string(told - most) + " more\n" : text;
}

}  // namespace eetool
