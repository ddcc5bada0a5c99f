// Where the records of a run go: the one logger of the process, or whatever a model was given.
#ifndef CMODEL_RECORD_LOG_H
#define CMODEL_RECORD_LOG_H

#include <cstdarg>

#include "log.h"
#include "log_positions.h"

namespace cm {

class RecordLog {
  public:
    virtual ~RecordLog() = default;

    void record(int level, const LogPosition& at, const char* fmt, ...) CM_PRINTF(4, 5) {
        va_list args;
        va_start(args, fmt);
        take(level, at, fmt, args);
        va_end(args);
    }

  private:
    virtual void take(int level, const LogPosition& at, const char* fmt, va_list args) = 0;
};

// log_log() as a RecordLog.
RecordLog& global_log();

}  // namespace cm

#endif
