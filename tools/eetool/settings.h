// Settings as a whole: one at random, as a short text, and what differs between two.
#ifndef CMODEL_EETOOL_SETTINGS_H
#define CMODEL_EETOOL_SETTINGS_H

#include <cstdint>
#include <string>
#include <vector>

#include "ee_reg_table.h"

namespace eetool {

// A setting in which `eetool ini --check` finds nothing, drawn from a seed: all single registers and tables
// anywhere in their fields (thresholds and strengths of more than 8 bits with every number of bits alike),
// curves with knots that rise, slopes that lead to them and no weight above the whole. The block is on;
// texture mode is drawn; one in eight shows a debug view. A seed gives the same setting on every machine.
cm::Registers random_setting(uint64_t seed);

// The registers that differ from their defaults, as slots in their order.
std::vector<int> changed_slots(const cm::Registers& setting);

// Section [eeINSTANCE] (`instance` "NULL": [ee]) with every register, or only with those that differ from
// their defaults. The loader gives the same setting back.
std::string ini_text(const cm::Registers& setting, const char* instance, bool minimal);

// A line for each register that differs, with its meaning; for a curve or a table one line that names the
// members: "reg_ee_motion_lut: in_1 64 -> 70, out_1 128 -> 90; gain by motion, 128 is 1.0".
std::vector<std::string> differences(const cm::Registers& a, const cm::Registers& b);

}  // namespace eetool

#endif
