/*
 * Register block of the edge-enhancement model.
 *
 * One global block holds the hardware registers and an empty software set. Each register is a
 * small bit field with a default and an INI key; its slot name is the key itself. Call
 * INIT_EE_REG() before anything reads the block; until then all its bytes are 0, which is a block that is
 * off. The blocks only read it.
 * This header compiles as C11 and as C++20.
 */
#ifndef CMODEL_EE_REG_H
#define CMODEL_EE_REG_H

#include <stdint.h>
#include <stdio.h>

#include "log.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Slot numbers, in the one order that init, load, print and dump walk. */
enum EeRegSlot {
#define REG(key, bits, is_signed, def, group, place, followers, meaning) key,
#include "ee_reg_hw_def.inc"
#undef REG
    EE_REG_COUNT
};

/* One register. */
typedef struct EE_REG_SLOT {
    int32_t value;   /* reduced to its field; signed fields sign-extended */
    const char* key; /* INI key, static; null before the init */
    uint32_t is_set; /* 1 once a load has given a value */
} EE_REG_SLOT;

typedef struct EE_REG_HW {
    char name[32]; /* instance name, also the INI section: "ee" and the suffix */
    EE_REG_SLOT slot[EE_REG_COUNT];
} EE_REG_HW;

typedef struct EE_REG_SW {
    char name[32]; /* "ee_sw" and the suffix; the set has no registers */
} EE_REG_SW;

typedef struct EE_REG {
    EE_REG_HW hw;
    EE_REG_SW sw;
} EE_REG;

CM_API extern EE_REG ee_reg;

/* Resets every register of ee_reg to its default and names the sets. `ins_name` null or "NULL"
 * adds no suffix; a longer suffix is cut so that a name fits 31 characters. Returns 0. */
CM_API int INIT_EE_REG(const char* ins_name);
CM_API int ee_reg_hw_init(EE_REG_HW* set, const char* ins_name);
CM_API int ee_reg_sw_init(EE_REG_SW* set, const char* ins_name);

/* Fills ee_reg from the section of the INI file that bears its name, then logs at ERROR every
 * register that no load has set since the init. Values are reduced to their field; unknown keys,
 * malformed lines and other sections are accepted. Returns 0, or 1 when there is no such file that
 * can be read (one DEBUG record; the registers stay as they are). A read error half-way, no memory
 * or no free descriptor ends the program with status 1 and a message. */
CM_API int LOAD_EE_INI(const char* path);

/* The parser's handler: `user` is the EE_REG. Always returns 1. */
CM_API int ee_reg_loader(void* user, const char* section, const char* key, const char* value);
CM_API int ee_reg_hw_load(EE_REG_HW* set, const char* section, const char* key, const char* value);
CM_API int ee_reg_sw_load(EE_REG_SW* set, const char* section, const char* key, const char* value);

/* Lists the block in the log at DEBUG. Returns 0. */
CM_API int PRINT_EE_REG(void);
CM_API int ee_reg_hw_print(const EE_REG_HW* set);
CM_API int ee_reg_sw_print(const EE_REG_SW* set);

/* Writes the block into the INI file at `path`: each set's own section is replaced in place (or
 * appended), every other line stays. The sets are written one after the other, each through
 * "PATH.temp", so one caller at a time dumps to a path. Returns 0, or -1 and an ERROR record when a
 * set could not be written: a file that cannot be read, a right or memory that lacks leave the target
 * as that set found it; when the disk fills up while the target is written back, its whole text
 * stays in the work file. */
CM_API int DUMP_EE_INI(const char* path);
CM_API int DUMP_EE_HW_INI(const char* path);
CM_API int DUMP_EE_SW_INI(const char* path);

/* Writes one set as an INI section. Returns 0. */
CM_API int ee_reg_hw_dump_ini(FILE* stream, const EE_REG_HW* set);
CM_API int ee_reg_sw_dump_ini(FILE* stream, const EE_REG_SW* set);

#ifdef __cplusplus
}
#endif

#endif
