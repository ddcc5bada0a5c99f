// The logger. Sinks cannot be taken off again, so all tests share the same three.
#include "log.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <ctime>
#include <string>

namespace {

std::string calls;  // of the lock and of the callback sink, in order

void note_record(log_Event* event) {
    char text[64];
    std::vsnprintf(text, sizeof text, event->fmt, event->args);
    calls += static_cast<const char*>(event->udata) + std::string(" ") + text + "; ";
}

void note_lock(bool lock, void* udata) {
    calls += static_cast<const char*>(udata) + std::string(lock ? " on; " : " off; ");
}

char sink_name[] = "sink", lock_name[] = "lock", late_name[] = "late";

class Log : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        EXPECT_EQ(log_add_fp(all_, LOG_TRACE), 0);
        EXPECT_EQ(log_add_fp(info_, LOG_INFO), 0);
        EXPECT_EQ(log_add_callback(note_record, sink_name, LOG_ERROR), 0);
    }
    void SetUp() override {
        log_set_quiet(true);
        log_set_level(LOG_TRACE);
        calls.clear();
    }

    // What reaches a file by the time that the call returns.
    static std::string take(FILE* sink) {
        std::string text(4096, '\0');
        const ssize_t length = pread(fileno(sink), text.data(), text.size(), 0);
        text.resize(length > 0 ? static_cast<size_t>(length) : 0);
        std::rewind(sink);
        EXPECT_EQ(ftruncate(fileno(sink), 0), 0);
        return text;
    }

    static inline FILE* const all_ = std::tmpfile();
    static inline FILE* const info_ = std::tmpfile();
};

// Each output has its level; the console can be silenced. A record has one time for all outputs, and a
// second sink formats the same arguments from the start.
TEST_F(Log, RecordsReachTheOutputsOfTheirLevel) {
    const struct {
        int level;
        const char* file;
        int line;
        const char *console, *in_file, *callback;
    } rows[] = {
        {LOG_TRACE, "a", 7, "", " TRACE a                   :007: x=5 y\n", ""},
        {LOG_DEBUG, "a", 7, "", " DEBUG a                   :007: x=5 y\n", ""},
        {LOG_INFO, "a", 7, "", " INFO  a                   :007: x=5 y\n", ""},
        {LOG_WARN, "a_name_of_21_columns_", 1234, " WARN  a_name_of_21_columns_:1234: x=5 y\n",
         " WARN  a_name_of_21_columns_:1234: x=5 y\n", ""},
        {LOG_ERROR, "a", 7, " ERROR a:7: x=5 y\n", " ERROR a                   :007: x=5 y\n",
         "sink x=5 y; "},
        {LOG_FATAL, "a", 7, " FATAL a:7: x=5 y\n", " FATAL a                   :007: x=5 y\n",
         "sink x=5 y; "},
        {6, "a", 100, " ?     a:100: x=5 y\n", " ?     a                   :100: x=5 y\n", "sink x=5 y; "},
    };
    log_set_level(LOG_WARN);
    for (const bool quiet : {false, true}) {
        log_set_quiet(quiet);
        for (const auto& row : rows) {
            calls.clear();
            testing::internal::CaptureStderr();
            log_log(row.level, row.file, row.line, "x=%d %s", 5, "y");
            const std::string in_file = take(all_);  // before the capture's end flushes all streams
            const std::string console = testing::internal::GetCapturedStderr();
            bool now = false;
            for (int ago = 0; ago < 3; ++ago) {
                char text[20];
                const std::time_t moment = std::time(nullptr) - ago;
                std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&moment));
                now |= in_file.starts_with(text);
            }
            ASSERT_TRUE(now) << in_file;
            EXPECT_EQ(in_file.substr(19), row.in_file);
            EXPECT_EQ(take(info_), row.level >= LOG_INFO ? in_file : "");
            EXPECT_EQ(console, quiet || !*row.console ? "" : in_file.substr(11, 8) + row.console);
            EXPECT_EQ(calls, row.callback);
        }
    }
}

TEST_F(Log, LockBracketsTheOutputs) {
    log_set_lock(note_lock, lock_name);
    log_log(LOG_FATAL, "a", 1, "m%d", 1);
    log_log(LOG_DEBUG, "a", 1, "m%d", 2);
    log_set_lock(nullptr, nullptr);
    log_log(LOG_ERROR, "a", 1, "m%d", 3);
    EXPECT_EQ(calls, "lock on; sink m1; lock off; lock on; lock off; sink m3; ");
}

TEST_F(Log, The33rdSinkIsRefused) {
    std::string expected = "sink m; ";
    for (int n = 3; n < 32; ++n, expected += "late m; ")
        ASSERT_EQ(log_add_callback(note_record, late_name, LOG_FATAL), 0) << n;
    EXPECT_EQ(log_add_callback(note_record, late_name, LOG_TRACE), -1);
    EXPECT_EQ(log_add_fp(all_, LOG_TRACE), -1);
    log_log(LOG_FATAL, "a", 1, "m");
    EXPECT_EQ(calls, expected);
}

}  // namespace
