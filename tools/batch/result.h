// What came of the jobs of a list: a line of JSON each, in files that only grow.
#ifndef CMODEL_BATCH_RESULT_H
#define CMODEL_BATCH_RESULT_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "fd.h"

namespace eetool {

enum class Outcome { kOk, kFailed, kUnlike };
const char* name_of(Outcome outcome);

struct Result {
    uint64_t line = 0;  // of the list, from 1
    std::string id;
    Outcome outcome = Outcome::kOk;
    std::string sha256;                                       // of the output's samples; "" if there is none
    std::vector<std::pair<std::string, std::string>> stages;  // name and SHA-256 of those that were asked for
    double ms = 0;        // reading, running, hashing and writing, without waits
    std::string version;  // of the model
    std::string job;      // digest of the job's line
    std::string inputs;   // digest of names, sizes and times of the files that it reads
    std::string message;  // what went wrong
    std::string repeat;   // the command that does it again
};

// A line with its end. Without times it has neither `ms` nor `inputs`.
std::string line_of(const Result& result, bool with_times = true);
// Throws Cannot, without a place.
Result parse_result(std::string_view line);

// Calls `take` with each line of a file of results, without its end, and with where it begins and its number
// from 1. A last line without an end is left out: its run was killed. Throws Cannot.
void read_lines(const std::string& path,
                const std::function<void(std::string_view line, uint64_t at, uint64_t number)>& take);

// A file of results that is written to, by one process at a time. Lines get into it whole or not at all.
class ResultFile {
  public:
    // Makes the file, or goes on with one that is there: what a killed run left of a last line is cut off.
    // "" is standard output. Throws Cannot: cannot be opened, is used by another run, is not empty and not
    // to be gone on with.
    ResultFile(const std::string& path, bool go_on);

    // Throws Cannot, and the file is as it was.
    void append(const std::string& line);

  private:
    [[noreturn]] void fail(const char* what) const;

    const std::string path_;
    const Fd fd_;
    bool is_file_ = false;
    int64_t size_ = 0;
};

// The results of one list from several files: of each job the one that was written last, files in the order
// of their names here, in the order of the list. Only places are kept in memory.
class ResultSet {
  public:
    // Throws Cannot: a file cannot be read or has lines that are no results, or they are of different lists.
    explicit ResultSet(const std::vector<std::string>& paths);

    size_t size() const { return places_.size(); }
    uint64_t last_line() const { return places_.empty() ? 0 : places_.back().line; }
    void for_each(const std::function<void(const Result&)>& take) const;

  private:
    struct Place {
        uint64_t line, id, at;
        uint32_t file, size;
    };
    const std::vector<std::string> paths_;
    std::vector<std::unique_ptr<Fd>> files_;
    std::vector<Place> places_;
};

// What earlier runs made of jobs, by the digest of their ids.
class EarlierResults {
  public:
    struct Entry {
        uint64_t job, inputs;
        bool good;
        bool same_version;
    };
    // Adds the lines of a file.
    void add(const std::string& path);
    const Entry* find(const std::string& id) const;

  private:
    std::unordered_map<uint64_t, Entry> entries_;
};

// A report of results for continuous integration, JUnit's XML. Throws Cannot, and leaves no file then.
void write_junit(const std::string& path, const ResultSet& results);

}  // namespace eetool

#endif
