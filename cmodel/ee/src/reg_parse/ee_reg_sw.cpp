// Operations on the software register set, which has a name and no registers.
#include "ee_reg.h"
#include "ee_reg_name.h"
#include "log_positions.h"

int ee_reg_sw_init(EE_REG_SW* set, const char* ins_name) {
    cm::set_instance_name(set->name, "ee_sw", ins_name);
    return 0;
}

int ee_reg_sw_load(EE_REG_SW*, const char*, const char*, const char*) {
    return 1;
}

int ee_reg_sw_print(const EE_REG_SW* set) {
    log_log(LOG_DEBUG, cm::at::kPrintSoftwareSet.source, cm::at::kPrintSoftwareSet.line, "[%s]", set->name);
    return 0;
}

int ee_reg_sw_dump_ini(FILE* stream, const EE_REG_SW* set) {
    std::fprintf(stream, "[%s]\n", set->name);
    return 0;
}
