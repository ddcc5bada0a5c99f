#include "batch_run.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <unordered_set>

#include "cmodel.h"
#include "crew.h"
#include "job_run.h"
#include "result.h"
#include "shell_word.h"

namespace eetool {
namespace {

bool is_blank(std::string_view line) {
    return line.find_first_not_of(" \t\r") == line.npos;
}

// The lines of a list, given out in order to whoever asks.
class List {
  public:
    struct Line {
        std::string text;
        uint64_t number = 0;  // from 1
    };

    List(const std::string& path, uint64_t shard, uint64_t shards)
        : path_(path), shard_(shard), shards_(shards), file_(std::fopen(path.c_str(), "rb")) {
        struct stat info;
        if (file_ == nullptr || fstat(fileno(file_.get()), &info) != 0) {
            throw Cannot(path + " cannot be read: " + std::strerror(errno));
        }
        if (!S_ISREG(info.st_mode)) {
            throw Cannot(path + " is no regular file; a list is gone through more than once");
        }
    }
    ~List() { std::free(room_); }
    List(const List&) = delete;
    List& operator=(const List&) = delete;

    // The next line of the shard that has a job; false after the last.
    bool next(Line& line) {
        const std::lock_guard lock(mutex_);
        for (;;) {
            errno = 0;
            const ssize_t length = getline(&room_, &size_, file_.get());
            if (length < 0 && std::ferror(file_.get()) != 0) {
                throw Cannot(path_ + " cannot be read: " + std::strerror(errno));
            }
            if (length < 0) {
                return false;
            }
            ++number_;
            const size_t end = static_cast<size_t>(length) - (room_[length - 1] == '\n' ? 1 : 0);
            if (!is_blank({room_, end}) && jobs_++ % shards_ == shard_) {
                line.text.assign(room_, end);
                line.number = number_;
                return true;
            }
        }
    }

  private:
    struct CloseFile {
        void operator()(FILE* file) const { std::fclose(file); }
    };

    const std::string path_;
    const uint64_t shard_, shards_;
    std::mutex mutex_;
    std::unique_ptr<FILE, CloseFile> file_;
    char* room_ = nullptr;
    size_t size_ = 0;
    uint64_t number_ = 0, jobs_ = 0;
};

Job job_of(const std::string& list, const List::Line& line) {
    try {
        return parse_job(line.text);
    } catch (const Cannot& e) {
        throw Cannot(list + ":" + std::to_string(line.number) + ": " + e.what());
    }
}

// Goes through the whole list before anything is run. Returns how many jobs the shard has.
uint64_t check_list(const BatchOptions& o) {
    List list(o.list, 0, 1);
    List::Line line;
    std::unordered_set<uint64_t> ids, outputs;
    uint64_t jobs = 0, mine = 0;
    bool found = o.only.empty();
    while (list.next(line)) {
        const Job job = job_of(o.list, line);
        const auto fail = [&](const std::string& what) {
            throw Cannot(o.list + ":" + std::to_string(line.number) + ": " + what);
        };
        if (!ids.insert(digest_of(job.id)).second) {
            fail("there is a job " + job.id + " already");
        }
        if (!job.out.empty() && !outputs.insert(digest_of(job.out)).second) {
            fail("a job before writes to " + job.out + ", too");
        }
        found = found || job.id == o.only;
        mine += jobs++ % o.shards == o.shard ? 1 : 0;
    }
    if (!found) {
        throw Cannot(o.list + " has no job " + o.only);
    }
    return o.only.empty() ? mine : 1;
}

class BatchRun {
  public:
    explicit BatchRun(const BatchOptions& o)
        : o_(o),
          total_(check_list(o)),
          list_(o.list, o.shard, o.shards),
          compute_(o.threads),
          progress_(counts_, total_) {
        if (!o.failed_from.empty()) {
            failed_.add(o.failed_from);
        }
        if (o.resume && !o.results.empty() && access(o.results.c_str(), F_OK) == 0) {
            earlier_.add(o.results);
        }
        results_ = std::make_unique<ResultFile>(o.results, o.resume);
    }

    int run() {
        const auto start = Clock::now();
        const int signal = run_crew(
            o_.threads + 1, stop_, [&] { work(); }, [&] { progress_.tick(); });
        progress_.clear();
        const uint64_t failed = counts_.failed, unlike = counts_.unlike;
        std::fprintf(stderr, "eetool: %llu of %llu jobs: %llu ok, %llu failed, %llu unlike what they expect",
                     static_cast<unsigned long long>(counts_.done()), static_cast<unsigned long long>(total_),
                     static_cast<unsigned long long>(counts_.ok), static_cast<unsigned long long>(failed),
                     static_cast<unsigned long long>(unlike));
        if (counts_.skipped > 0) {
            std::fprintf(stderr, "; %llu not run again or not asked for",
                         static_cast<unsigned long long>(counts_.skipped));
        }
        std::fprintf(stderr, "; %.1f s\n", ms_since(start) / 1000);
        if (signal != 0) {
            std::fprintf(stderr, "eetool: ended by a signal; go on with: %s\n", o_.go_on.c_str());
            return 128 + signal;
        }
        if (!o_.junit.empty()) {
            write_junit(o_.junit, ResultSet({o_.results}));
        }
        return failed + unlike > 0 ? kSomeFailed : kAllGood;
    }

  private:
    bool is_wanted(const Job& job, uint64_t digest) const {
        if (!o_.only.empty() && job.id != o_.only) {
            return false;
        }
        if (!o_.failed_from.empty()) {
            const EarlierResults::Entry* const entry = failed_.find(job.id);
            if (entry == nullptr || entry->good) {
                return false;
            }
        }
        const EarlierResults::Entry* const entry = o_.resume ? earlier_.find(job.id) : nullptr;
        return entry == nullptr || !entry->good || !entry->same_version || entry->job != digest ||
               entry->inputs != digest_of_inputs(job) ||
               (!job.out.empty() && access(job.out.c_str(), F_OK) != 0);
    }

    void work() {
        FrameInputs inputs;
        FrameOutputs outputs;
        SettingCache settings([&](const std::string& text) { progress_.say(text); });
        List::Line line;
        while (!stop_ && list_.next(line)) {
            const Job job = job_of(o_.list, line);
            const uint64_t digest = digest_of(line.text);
            if (!is_wanted(job, digest)) {
                ++counts_.skipped;
                continue;
            }
            Result result;
            result.line = line.number;
            result.id = job.id;
            result.version = cmodel_version();
            result.job = hex_of(digest);
            result.inputs = hex_of(digest_of_inputs(job));
            try {
                run_job(job, settings, inputs, outputs, result);
            } catch (const Cannot& e) {
                result.outcome = Outcome::kFailed;
                result.message = e.what();
                result.sha256.clear();
                result.stages.clear();
            }
            if (result.outcome != Outcome::kOk) {
                result.repeat = "eetool batch " + shell_word(o_.list) + " --only " + shell_word(job.id);
            }
            finish(result);
        }
    }

    void run_job(const Job& job, SettingCache& settings, FrameInputs& inputs, FrameOutputs& outputs,
                 Result& result) {
        auto start = Clock::now();
        inputs.read(job);
        result.ms = ms_since(start);
        {
            const Permit permit(compute_);
            start = Clock::now();
            outputs.run(settings.model_for(job), job, inputs);
            result.sha256 = outputs.sha256();
            result.stages = outputs.stage_hashes();
            result.ms += ms_since(start);
        }
        if (!job.expect.empty() && job.expect != result.sha256) {
            result.outcome = Outcome::kUnlike;
            result.message = "expected " + job.expect;
        }
        if (!job.out.empty()) {
            start = Clock::now();
            outputs.write(job);
            result.ms += ms_since(start);
        }
    }

    void finish(const Result& result) {
        const std::string line = line_of(result);
        {
            const std::lock_guard lock(mutex_);
            results_->append(line);
        }
        ++(result.outcome == Outcome::kOk       ? counts_.ok
           : result.outcome == Outcome::kFailed ? counts_.failed
                                                : counts_.unlike);
        if (result.outcome != Outcome::kOk && o_.stop_on_failure) {
            stop_ = true;
        }
    }

    const BatchOptions& o_;
    const uint64_t total_;
    List list_;
    EarlierResults earlier_, failed_;
    std::unique_ptr<ResultFile> results_;
    Counts counts_;
    Permits compute_;
    std::atomic<bool> stop_{false};
    std::mutex mutex_;  // of the results
    Progress progress_;
};

}  // namespace

int run_batch(const BatchOptions& options) {
    return BatchRun(options).run();
}

}  // namespace eetool
