// What is wrong in a register file, and what the model makes of it.
#ifndef CMODEL_INI_FINDINGS_H
#define CMODEL_INI_FINDINGS_H

#include <cstdio>
#include <string>
#include <vector>

#include "ee_reg_table.h"

namespace cm {

struct IniFinding {
    int line;
    std::string text;
};

struct IniFindings {
    std::vector<IniFinding> findings;  // by line
    int unset = 0;                     // registers that the section does not set
    Registers registers;               // as the file leaves them
};

// Reads a register file to its end as a run of section [eeINSTANCE] would, from the registers `start`.
// `complete` makes a finding of each register that is not set. Returns 0, or the errno value of what kept it
// from the end, and then no findings. Throws std::bad_alloc.
int find_in_ini(FILE* file, const char* instance, const Registers& start, bool complete, IniFindings& found);

}  // namespace cm

#endif
