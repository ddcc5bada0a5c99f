/*
 * Levelled logger.
 *
 * Every record goes through log_log(), which stamps it with the local time, the level and the
 * call site, and sends it to standard error (unless quiet) and to every registered sink whose
 * level lets it through. Each record is flushed before log_log() returns, so a log file is
 * complete up to the last record when the program stops.
 *
 * The logger takes no lock of its own; set one with log_set_lock() before using it from
 * several threads. This header compiles as C11 and as C++20.
 */
#ifndef CMODEL_LOG_H
#define CMODEL_LOG_H

#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <time.h>

#if defined(__GNUC__)
#define CM_API __attribute__((visibility("default")))
#define CM_PRINTF(fmt_arg, first_arg) __attribute__((format(printf, fmt_arg, first_arg)))
#else
#define CM_API
#define CM_PRINTF(fmt_arg, first_arg)
#endif

#ifdef __cplusplus
extern "C" {
#endif

enum { LOG_TRACE = 0, LOG_DEBUG = 1, LOG_INFO = 2, LOG_WARN = 3, LOG_ERROR = 4, LOG_FATAL = 5 };

/* Sinks that can be registered at a time. */
enum { LOG_MAX_SINKS = 32 };

/* One record, as a sink sees it. `args` is a fresh copy for each sink. */
typedef struct log_Event {
    va_list args;
    const char* fmt;
    const char* file;
    struct tm* time; /* local time; the same for every output of one record */
    void* udata;     /* the user data given with the sink being served */
    int line;
    int level;
} log_Event;

typedef void (*log_SinkFn)(log_Event* event);
typedef void (*log_LockFn)(bool lock, void* udata);

/* Logs one record. `file` is the source's bare name; it and `fmt` must outlive the call only. */
CM_API void log_log(int level, const char* file, int line, const char* fmt, ...) CM_PRINTF(4, 5);

/* Registers an open stream (it stays the caller's) for records of at least `level`.
 * Returns 0, or -1 when all LOG_MAX_SINKS entries are taken. */
CM_API int log_add_fp(FILE* fp, int level);

/* Registers a sink function for records of at least `level`; same result as log_add_fp(). */
CM_API int log_add_callback(log_SinkFn fn, void* udata, int level);

/* Minimum level for standard error; LOG_TRACE at start. */
CM_API void log_set_level(int level);

/* true: nothing goes to standard error. false at start. */
CM_API void log_set_quiet(bool enable);

/* `fn(true, udata)` is called before the outputs of each record, `fn(false, udata)` after them.
 * A null `fn` removes the lock. */
CM_API void log_set_lock(log_LockFn fn, void* udata);

/* "TRACE" .. "FATAL"; "?" for a level outside 0..5. The string is static. */
CM_API const char* log_level_string(int level);

#ifdef __cplusplus
}
#endif

#endif
