// Instance names of the register sets.
#ifndef CMODEL_EE_REG_NAME_H
#define CMODEL_EE_REG_NAME_H

#include <cstdio>
#include <cstring>

namespace cm {

// `base` and the suffix, cut to 31 characters. No suffix, or the text "NULL", adds nothing.
inline void set_instance_name(char (&name)[32], const char* base, const char* ins_name) {
    const bool plain = ins_name == nullptr || std::strcmp(ins_name, "NULL") == 0;
    std::snprintf(name, sizeof name, "%s%.29s", base, plain ? "" : ins_name);
}

}  // namespace cm

#endif
