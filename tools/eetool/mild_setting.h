// The setting of photographs that come without one.
#ifndef CMODEL_EETOOL_MILD_SETTING_H
#define CMODEL_EETOOL_MILD_SETTING_H

#include <string_view>

namespace eetool {

// settings/mild.ini as it was when the program was built: registers in section [ee].
extern const std::string_view kMildSetting;

}  // namespace eetool

#endif
