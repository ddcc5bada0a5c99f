#include "crew.h"

#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

#include "fd.h"

namespace eetool {

int usable_cores() {
    cpu_set_t set;
    int cores = sched_getaffinity(0, sizeof set, &set) == 0 ? CPU_COUNT(&set) : 1;
    std::ifstream quota("/sys/fs/cgroup/cpu.max");
    double most = 0, period = 0;
    if (quota >> most >> period && most > 0 && period > 0) {
        cores = std::min(cores, static_cast<int>(std::lround(most / period)));
    }
    return std::max(cores, 1);
}

// ---- Progress ----

Progress::Progress(const Counts& counts, uint64_t total)
    : counts_(counts), total_(total), on_terminal_(isatty(STDERR_FILENO) != 0) {
    next_ = start_ + (on_terminal_ ? std::chrono::milliseconds(500) : std::chrono::milliseconds(60000));
}

std::string Progress::text() const {
    const auto two = [](int64_t n) { return (n < 10 ? "0" : "") + std::to_string(n); };
    const uint64_t done = counts_.done();
    const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    const double rate = static_cast<double>(done) / std::max(seconds, 1e-3);
    std::string text = "eetool: " + std::to_string(done);
    if (total_ > 0) {
        text += " of " + std::to_string(total_ - counts_.skipped);
    }
    char number[32];
    std::snprintf(number, sizeof number, "%.1f", rate);
    text.append(" done, ").append(number).append(" a second");
    if (total_ > 0 && done > 0) {
        const int64_t left = std::llround(static_cast<double>(total_ - counts_.skipped - done) / rate);
        text += ", ";
        if (left >= 3600) {
            text += std::to_string(left / 3600) + " h " + two(left / 60 % 60) + " min";
        } else if (left >= 60) {
            text += std::to_string(left / 60) + " min " + two(left % 60) + " s";
        } else {
            text += std::to_string(left) + " s";
        }
        text += " left";
    }
    return text + ", " + std::to_string(counts_.failed + counts_.unlike) + " failed";
}

void Progress::tick() {
    const std::lock_guard lock(mutex_);
    if (Clock::now() < next_) {
        return;
    }
    next_ = Clock::now() + (on_terminal_ ? std::chrono::milliseconds(500) : std::chrono::milliseconds(60000));
    std::fprintf(stderr, on_terminal_ ? "\r%s\x1b[K" : "%s\n", text().c_str());
    std::fflush(stderr);
    shown_ = on_terminal_;
}

void Progress::clear() {
    const std::lock_guard lock(mutex_);
    remove_line();
}

void Progress::say(const std::string& text) {
    const std::lock_guard lock(mutex_);
    remove_line();
    if (said_.insert(text).second) {
        std::fprintf(stderr, "eetool: %s\n", text.c_str());
    }
}

void Progress::remove_line() {
    if (shown_) {
        std::fputs("\r\x1b[K", stderr);
        shown_ = false;
    }
}

// ---- Threads ----

int run_crew(int threads, std::atomic<bool>& stop, const std::function<void()>& body,
             const std::function<void()>& tick) {
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &ending, &before);  // the threads are made with it
    const Fd signals(signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK));
    const Fd ended(eventfd(0, EFD_CLOEXEC));

    std::mutex mutex;
    std::exception_ptr thrown;
    std::atomic<int> left{threads};
    std::vector<std::jthread> crew;
    crew.reserve(static_cast<size_t>(threads));
    for (int i = 0; i < threads; ++i) {
        crew.emplace_back([&] {
            try {
                body();
            } catch (...) {
                stop = true;
                const std::lock_guard lock(mutex);
                thrown = thrown ? thrown : std::current_exception();
            }
            if (--left == 0) {
                const uint64_t one = 1;
                [[maybe_unused]] const ssize_t n = write(ended, &one, sizeof one);
            }
        });
    }
    int signal = 0;
    while (left > 0) {
        pollfd both[] = {{ended, POLLIN, 0}, {signals, POLLIN, 0}};
        poll(both, 2, 200);
        signalfd_siginfo info;
        if ((both[1].revents & POLLIN) != 0 && read(signals, &info, sizeof info) == sizeof info) {
            signal = static_cast<int>(info.ssi_signo);
            stop = true;
            pthread_sigmask(SIG_UNBLOCK, &ending, nullptr);  // the next one ends the process
        }
        tick();
    }
    crew.clear();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (thrown) {
        std::rethrow_exception(thrown);
    }
    return signal;
}

}  // namespace eetool
