// Threads of a run, what they tell the user meanwhile, and how they are ended early.
#ifndef CMODEL_BATCH_CREW_H
#define CMODEL_BATCH_CREW_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <semaphore>
#include <set>
#include <string>

namespace eetool {

using Clock = std::chrono::steady_clock;

inline double ms_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// What a thread holds while it computes; there are as many as may compute at a time.
inline constexpr int kMostThreads = 1024;
using Permits = std::counting_semaphore<kMostThreads>;
class Permit {
  public:
    explicit Permit(Permits& permits) : permits_(permits) { permits.acquire(); }
    ~Permit() { permits_.release(); }
    Permit(const Permit&) = delete;
    Permit& operator=(const Permit&) = delete;

  private:
    Permits& permits_;
};

// The cores that this process may use: its affinity, cut by a quota of its control group. At least 1.
int usable_cores();

struct Counts {
    std::atomic<uint64_t> ok{0}, failed{0}, unlike{0};
    std::atomic<uint64_t> skipped{0};  // had good results already
    uint64_t done() const { return ok + failed + unlike; }
};

// How far a run is, on standard error: one line that changes on a terminal, else a line a minute.
class Progress {
  public:
    // `total` 0: not known.
    Progress(const Counts& counts, uint64_t total);
    void tick();
    // Removes the line that changes, so that others can be written.
    void clear();
    // Tells something on standard error, once however often it comes. Any thread may call it, and the others.
    void say(const std::string& text);

  private:
    std::string text() const;
    void remove_line();

    const Counts& counts_;
    const uint64_t total_;
    const bool on_terminal_;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point next_;
    bool shown_ = false;
    std::set<std::string> said_;
    std::mutex mutex_;
};

// Runs body() in `threads` threads until all have returned, and calls tick() some times a second meanwhile.
// SIGINT and SIGTERM set `stop`, which the bodies look at between jobs; a second one ends the process.
// Returns the signal, or 0. What a body throws sets `stop` and is thrown here, when all have ended.
int run_crew(int threads, std::atomic<bool>& stop, const std::function<void()>& body,
             const std::function<void()>& tick);

}  // namespace eetool

#endif
