// The logger. Sinks cannot be taken off again, so all tests share the same three.
#include "log.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

namespace {

std::vector<std::string> calls;  // of the lock and of the callback sink, in order

void note_record(log_Event* event) {
    char text[64];
    std::vsnprintf(text, sizeof text, event->fmt, event->args);
    calls.push_back(*static_cast<std::string*>(event->udata) + " " + text);
}

void note_lock(bool lock, void* udata) {
    calls.push_back(*static_cast<std::string*>(udata) + (lock ? " on" : " off"));
}

struct Sinks {
    FILE* all = std::tmpfile();
    FILE* info = std::tmpfile();
    std::string callback = "sink";
    Sinks() {
        EXPECT_EQ(log_add_fp(all, LOG_TRACE), 0);
        EXPECT_EQ(log_add_fp(info, LOG_INFO), 0);
        EXPECT_EQ(log_add_callback(note_record, &callback, LOG_ERROR), 0);
    }
};

Sinks& sinks() {
    static Sinks all_tests;
    return all_tests;
}

// What has reached the file behind a sink since the last call.
std::string take(FILE* sink) {
    std::string text(4096, '\0');
    const ssize_t length = pread(fileno(sink), text.data(), text.size(), 0);
    text.resize(length > 0 ? static_cast<size_t>(length) : 0);
    std::rewind(sink);
    EXPECT_EQ(ftruncate(fileno(sink), 0), 0);
    return text;
}

// A text with a 0 for each number.
std::string shape(const std::string& text) {
    std::string out;
    for (const char c : text) {
        const char kind = std::isdigit(static_cast<unsigned char>(c)) ? '0' : c;
        if (kind != '0' || out.empty() || out.back() != '0') {
            out += kind;
        }
    }
    return out;
}

class Log : public testing::Test {
  protected:
    void SetUp() override {
        sinks();
        log_set_quiet(false);
        log_set_level(LOG_TRACE);
    }
    void TearDown() override {
        take(sinks().all);
        take(sinks().info);
        calls.clear();
        log_set_lock(nullptr, nullptr);
    }
};

TEST_F(Log, BothFormatsOfOneRecord) {
    const struct {
        int level;
        const char* file;
        int line;
        const char* console;
        const char* in_file;
    } rows[] = {
        {LOG_TRACE, "a", 7, " TRACE a:7: x=5 y\n", " TRACE a                   :007: x=5 y\n"},
        {LOG_WARN, "a_name_of_21_columns_", 1234, " WARN  a_name_of_21_columns_:1234: x=5 y\n",
         " WARN  a_name_of_21_columns_:1234: x=5 y\n"},
        {6, "a", 100, " ?     a:100: x=5 y\n", " ?     a                   :100: x=5 y\n"},
    };
    for (const auto& row : rows) {
        testing::internal::CaptureStderr();
        log_log(row.level, row.file, row.line, "x=%d %s", 5, "y");
        const std::string console = testing::internal::GetCapturedStderr();
        const std::string in_file = take(sinks().all);
        ASSERT_EQ(shape(console.substr(0, 9)), "0:0:0 ");
        ASSERT_EQ(shape(in_file.substr(0, 20)), "0-0-0 0:0:0 ");
        EXPECT_EQ(console.substr(8), row.console);
        EXPECT_EQ(in_file.substr(19), row.in_file);
        EXPECT_EQ(console.substr(0, 8), in_file.substr(11, 8)) << "one time for all outputs";
        // The second sink formats the same arguments from the start.
        EXPECT_EQ(take(sinks().info), row.level >= LOG_INFO ? in_file : "");
    }
}

TEST_F(Log, EachOutputHasItsLevel) {
    log_set_level(LOG_WARN);
    const auto lines = [](const std::string& text) { return std::count(text.begin(), text.end(), '\n'); };
    for (const bool quiet : {false, true}) {
        log_set_quiet(quiet);
        for (int level = LOG_TRACE; level <= LOG_FATAL; ++level) {
            testing::internal::CaptureStderr();
            log_log(level, "a", 1, "m\n");  // ends a line itself: two line ends
            EXPECT_EQ(lines(testing::internal::GetCapturedStderr()), !quiet && level >= LOG_WARN ? 2 : 0);
            EXPECT_EQ(lines(take(sinks().all)), 2);
            EXPECT_EQ(lines(take(sinks().info)), level >= LOG_INFO ? 2 : 0);
            EXPECT_EQ(calls.size(), level >= LOG_ERROR ? 1 : 0);
            calls.clear();
        }
    }
}

TEST_F(Log, LockBracketsTheOutputs) {
    log_set_quiet(true);
    std::string name = "lock";
    log_set_lock(note_lock, &name);
    log_log(LOG_FATAL, "a", 1, "m%d", 1);
    EXPECT_NE(take(sinks().all), "") << "a record is in the file before the call returns";
    log_log(LOG_DEBUG, "a", 1, "m%d", 2);
    log_set_lock(nullptr, nullptr);
    log_log(LOG_ERROR, "a", 1, "m%d", 3);
    EXPECT_EQ(calls,
              (std::vector<std::string>{"lock on", "sink m1", "lock off", "lock on", "lock off", "sink m3"}));
}

TEST_F(Log, The33rdSinkIsRefused) {
    log_set_quiet(true);
    std::string late = "late";
    std::string never = "never";
    for (int n = 3; n < 32; ++n) {
        ASSERT_EQ(log_add_callback(note_record, &late, LOG_FATAL), 0) << n;
    }
    EXPECT_EQ(log_add_callback(note_record, &never, LOG_TRACE), -1);
    EXPECT_EQ(log_add_fp(sinks().all, LOG_TRACE), -1);
    log_log(LOG_FATAL, "a", 1, "m");
    EXPECT_EQ(calls.size(), 30u);
    EXPECT_EQ(calls.front(), "sink m");
    EXPECT_EQ(calls.back(), "late m");
}

}  // namespace
