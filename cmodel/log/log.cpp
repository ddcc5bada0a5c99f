#include "log.h"

#include <cstdio>
#include <ctime>

#include "record_log.h"

namespace {

struct Sink {
    log_SinkFn fn;  // null: a free entry, which ends the list
    void* udata;
    int level;
};

struct Logger {
    void* lock_udata;
    log_LockFn lock;
    int level;
    bool quiet;
    Sink sinks[LOG_MAX_SINKS];
};

Logger logger;

void set_lock(bool locked) {
    if (logger.lock != nullptr) {
        logger.lock(locked, logger.lock_udata);
    }
}

// One line and its end, out of the process before the call returns.
void write_message(FILE* out, log_Event* event) {
    std::vfprintf(out, event->fmt, event->args);
    std::fputc('\n', out);
    std::fflush(out);
}

void write_console(log_Event* event) {
    char time[16];
    std::strftime(time, sizeof time, "%H:%M:%S", event->time);
    FILE* const out = static_cast<FILE*>(event->udata);
    std::fprintf(out, "%s %-5s %s:%d: ", time, log_level_string(event->level), event->file, event->line);
    write_message(out, event);
}

void write_file(log_Event* event) {
    char time[64];
    std::strftime(time, sizeof time, "%Y-%m-%d %H:%M:%S", event->time);
    FILE* const out = static_cast<FILE*>(event->udata);
    std::fprintf(out, "%s %-5s %-20s:%03d: ", time, log_level_string(event->level), event->file, event->line);
    write_message(out, event);
}

// The local time, read when the first output of a record needs it.
struct LazyTime {
    std::tm local{};
    bool known = false;

    std::tm* get() {
        if (!known) {
            const std::time_t now = std::time(nullptr);
            localtime_r(&now, &local);
            known = true;
        }
        return &local;
    }
};

void log_va(int level, const char* file, int line, const char* fmt, va_list args) {
    log_Event event{};
    event.fmt = fmt;
    event.file = file;
    event.line = line;
    event.level = level;
    LazyTime time;

    const auto serve = [&](log_SinkFn fn, void* udata) {
        event.time = time.get();
        event.udata = udata;
        va_copy(event.args, args);
        fn(&event);
        va_end(event.args);
    };
    set_lock(true);
    if (!logger.quiet && level >= logger.level) {
        serve(write_console, stderr);
    }
    for (const Sink& sink : logger.sinks) {
        if (sink.fn == nullptr) {
            break;
        }
        if (level >= sink.level) {
            serve(sink.fn, sink.udata);
        }
    }
    set_lock(false);
}

class GlobalLog : public cm::RecordLog {
    void take(int level, const cm::LogPosition& at, const char* fmt, va_list args) override {
        log_va(level, at.source, at.line, fmt, args);
    }
};

}  // namespace

cm::RecordLog& cm::global_log() {
    static GlobalLog log;
    return log;
}

void log_log(int level, const char* file, int line, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    log_va(level, file, line, fmt, args);
    va_end(args);
}

int log_add_fp(FILE* fp, int level) {
    return log_add_callback(write_file, fp, level);
}

int log_add_callback(log_SinkFn fn, void* udata, int level) {
    for (Sink& sink : logger.sinks) {
        if (sink.fn == nullptr) {
            sink = {fn, udata, level};
            return 0;
        }
    }
    return -1;
}

void log_set_level(int level) {
    logger.level = level;
}

void log_set_quiet(bool enable) {
    logger.quiet = enable;
}

void log_set_lock(log_LockFn fn, void* udata) {
    logger.lock = fn;
    logger.lock_udata = udata;
}

const char* log_level_string(int level) {
    static const char* const kNames[] = {"TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL"};
    return level >= LOG_TRACE && level <= LOG_FATAL ? kNames[level] : "?";
}
