// Results as a page that is read by people.
#ifndef CMODEL_BATCH_SUMMARY_H
#define CMODEL_BATCH_SUMMARY_H

#include <string>

#include "result.h"

namespace eetool {

// Totals, a row for each setting, rows for the frames (those with failures first, at most `most`), the
// slowest jobs, and each failure (at most `most`) with the command that repeats it.
std::string summary_of(const ResultSet& results, size_t most);

}  // namespace eetool

#endif
