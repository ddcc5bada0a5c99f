// A clip under one setting, frame by frame and in order.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>

#include "batch_run.h"
#include "cmodel.h"
#include "crew.h"
#include "job_run.h"
#include "result.h"
#include "whole_file.h"

namespace eetool {
namespace {

// Y4M that is written: to a pipe or a device as it comes, to a file under another name until it is whole.
class Y4mOut {
  public:
    explicit Y4mOut(const std::string& path)
        : path_(path), part_(path == "-" ? path : name_until_whole(path)), fd_(open_out(part_)) {
        if (fd_ < 0) {
            fail();
        }
        widen_pipe(fd_);
    }

    void write(const void* bytes, size_t size) {
        for (size_t done = 0; done < size;) {
            const ssize_t n = ::write(fd_, static_cast<const uint8_t*>(bytes) + done, size - done);
            if (n < 0 && errno != EINTR) {
                fail();
            }
            done += n > 0 ? static_cast<size_t>(n) : 0;
        }
    }
    void write(const std::string& text) { write(text.data(), text.size()); }

    void finish() {
        if (part_ != path_ && std::rename(part_.c_str(), path_.c_str()) != 0) {
            fail();
        }
    }
    const std::string& part() const { return part_; }

  private:
    static int open_out(const std::string& path) {
        return path == "-" ? STDOUT_FILENO
                           : open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    }
    [[noreturn]] void fail() const {
        throw Cannot((path_ == "-" ? "standard output" : path_) +
                     " cannot be written: " + std::strerror(errno));
    }

    const std::string path_, part_;
    const Fd fd_;
};

class ClipRun {
  public:
    explicit ClipRun(const ClipRunOptions& o)
        : o_(o), source_(o.clip, o.raw), compute_(o.threads), progress_(counts_, 0) {
        const Y4mHeader header = o.raw ? header_of(*o.raw, o.rate) : source_.header();
        format_ = header.format;
        if (!o.results.empty()) {
            results_ = std::make_unique<ResultFile>(o.results, false);
        }
        if (o.out.empty()) {
            return;
        }
        out_ = std::make_unique<Y4mOut>(o.out);
        out_->write(y4m_header_line(header));
        if (format_.depth > 8) {
            std::fprintf(stderr,
                         "eetool: the clip has %d bits; what is written has 8: sharpened luma, and chroma "
                         "rounded\n",
                         format_.depth);
        }
    }

    int run() {
        const auto start = Clock::now();
        const int signal = run_crew(
            o_.threads + 1, stop_, [&] { work(); }, [&] { progress_.tick(); });
        progress_.clear();
        std::fprintf(stderr, "eetool: %llu frames in %.1f s\n", static_cast<unsigned long long>(counts_.ok),
                     ms_since(start) / 1000);
        if (!failure_.empty()) {
            std::fprintf(stderr, "eetool: %s\n", failure_.c_str());
        }
        const bool whole = signal == 0 && failure_.empty();
        if (out_ != nullptr && whole) {
            out_->finish();
        } else if (out_ != nullptr && out_->part() != o_.out) {
            std::fprintf(stderr, "eetool: these frames are in %s\n", out_->part().c_str());
        }
        return signal != 0 ? 128 + signal : whole ? kAllGood : kSomeFailed;
    }

  private:
    // The next frame and its number; false after the last. What is wrong with the clip goes to `wrong`.
    bool take_frame(FrameInputs& inputs, uint64_t& frame, std::string& wrong) {
        const std::lock_guard lock(read_);
        if (stop_ || at_end_) {
            return false;
        }
        try {
            at_end_ = !source_.next(inputs.clip_bytes());
        } catch (const Cannot& e) {
            at_end_ = true;
            wrong = e.what();
        }
        frame = taken_;
        const bool taken = !at_end_ || !wrong.empty();
        taken_ += taken ? 1 : 0;
        return taken;
    }

    void work() try {
        FrameInputs inputs;
        FrameOutputs outputs;
        SettingCache settings([&](const std::string& text) { progress_.say(text); });
        uint64_t frame = 0;
        std::string wrong;
        while (take_frame(inputs, frame, wrong)) {
            Result result;
            result.line = frame + 1;
            char number[24];
            std::snprintf(number, sizeof number, "#%05llu", static_cast<unsigned long long>(frame));
            const std::string clip =
                o_.clip == "-" ? "-" : std::filesystem::path(o_.clip).filename().string();
            result.id = clip + number + "@" + o_.name;
            result.version = cmodel_version();
            try {
                if (!wrong.empty()) {
                    throw Cannot(wrong);
                }
                run_frame(settings, inputs, outputs, result);
            } catch (const Cannot& e) {
                result.outcome = Outcome::kFailed;
                result.message =
                    wrong.empty() ? "frame " + std::to_string(frame) + ": " + e.what() : e.what();
            }
            if (!deliver(frame, result, inputs, outputs)) {
                return;
            }
        }
    } catch (...) {
        const std::lock_guard lock(mutex_);
        ended_ = true;
        turn_.notify_all();
        throw;
    }

    void run_frame(SettingCache& settings, FrameInputs& inputs, FrameOutputs& outputs, Result& result) {
        const auto start = Clock::now();
        inputs.take_clip_frame(format_);
        result.ms = ms_since(start);
        const Permit permit(compute_);
        const auto computing = Clock::now();
        outputs.run(settings.model_for(o_.setting), o_.setting, inputs);
        if (results_ != nullptr) {
            result.sha256 = outputs.sha256();
        }
        result.ms += ms_since(computing);
    }

    // Waits for the frames before this one; false when one of them failed, or this one.
    bool deliver(uint64_t frame, const Result& result, const FrameInputs& inputs,
                 const FrameOutputs& outputs) {
        std::unique_lock lock(mutex_);
        turn_.wait(lock, [&] { return ended_ || delivered_ == frame; });
        if (ended_) {
            return false;
        }
        lock.unlock();  // its turn lasts until it is passed on
        const bool ok = result.outcome == Outcome::kOk;
        if (ok && out_ != nullptr) {
            out_->write("FRAME\n");
            out_->write(outputs.samples().data(), outputs.samples().size());
            const std::vector<uint8_t>& chroma = inputs.clip_planes().own_chroma();
            out_->write(chroma.data(), chroma.size());
        }
        if (results_ != nullptr) {
            results_->append(line_of(result));
        }
        lock.lock();
        ++(ok ? counts_.ok : counts_.failed);
        ++delivered_;
        if (!ok) {
            failure_ = result.message;
            ended_ = true;
            stop_ = true;
        }
        turn_.notify_all();
        return ok;
    }

    const ClipRunOptions& o_;
    ClipStream source_;
    ClipFormat format_;
    std::unique_ptr<Y4mOut> out_;
    std::unique_ptr<ResultFile> results_;
    Counts counts_;
    Permits compute_;
    std::atomic<bool> stop_{false};

    std::mutex read_;  // of what is read
    uint64_t taken_ = 0;
    bool at_end_ = false;

    std::mutex mutex_;  // of what is delivered
    std::condition_variable turn_;
    uint64_t delivered_ = 0;
    bool ended_ = false;
    std::string failure_;
    Progress progress_;
};

}  // namespace

int run_clip(const ClipRunOptions& options) {
    return ClipRun(options).run();
}

}  // namespace eetool
