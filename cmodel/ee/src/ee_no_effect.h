// Register settings that sharpen nothing, whatever the picture.
#ifndef CMODEL_EE_NO_EFFECT_H
#define CMODEL_EE_NO_EFFECT_H

#include <vector>

#include "ee_reg.h"

namespace cm {

// Why pre_ee_hw() with these registers returns what it is given: src_ynr, or Yin when the block is off. Each
// element is one reason, enough by itself: the slots of the registers that make it so. It holds for every
// frame whose planes have depths that the block takes (luma 8 to 12 bits, fused luma 8 to 20, the rest 8).
// Without any reason a picture may change; there are settings that change none and are not found.
std::vector<std::vector<int>> find_no_effect(const EE_REG_HW& set);

}  // namespace cm

#endif
