// Source name and line of every log record. They are output that scripts key on, so each is a literal here
// and never where the call happens to stand. By source and line, so that a pair used twice meets the eye;
// records of one register have the lines of the register table.
#ifndef CMODEL_LOG_POSITIONS_H
#define CMODEL_LOG_POSITIONS_H

namespace cm {

struct LogPosition {
    const char* source;
    int line;
};

namespace at {

inline constexpr LogPosition kFileNotLocked{"common", 121};
inline constexpr LogPosition kCopySource{"common", 222};
inline constexpr LogPosition kCopyTarget{"common", 226};
inline constexpr LogPosition kReadColour{"common", 325};
inline constexpr LogPosition kReadGrey{"common", 410};
inline constexpr LogPosition kShortImage{"common", 441};
inline constexpr LogPosition kReadIntoFrame{"common", 487};
inline constexpr LogPosition kClipColourDepth{"common", 629};
inline constexpr LogPosition kClipGreyDepth{"common", 771};
inline constexpr LogPosition kRgbToYcbcrFormat{"common", 893};
inline constexpr LogPosition kRgbToYcbcrSafeSource{"common", 931};
inline constexpr LogPosition kRgbToYcbcrSafeTarget{"common", 932};
inline constexpr LogPosition kYcbcrToRgbFormat{"common", 1078};
inline constexpr LogPosition kYcbcrToRgbSafeFormat{"common", 1111};
inline constexpr LogPosition kShortRaw{"common", 1304};
inline constexpr LogPosition kRawFormat{"common", 1332};
inline constexpr LogPosition kWriteHist{"common", 1656};

inline constexpr LogPosition kLoadBegin{"ee_reg", 47};
inline constexpr LogPosition kLoadFailed{"ee_reg", 49};
inline constexpr LogPosition kLoadDone{"ee_reg", 52};
inline constexpr LogPosition kDumpBegin{"ee_reg", 79};
inline constexpr LogPosition kDumpDone{"ee_reg", 82};
inline constexpr LogPosition kDumpHardwareSet{"ee_reg", 86};  // all steps of that dump
inline constexpr LogPosition kDumpSoftwareSet{"ee_reg", 87};
inline constexpr LogPosition kPrintBegin{"ee_reg", 95};
inline constexpr LogPosition kPrintDone{"ee_reg", 98};
inline constexpr LogPosition kInitBegin{"ee_reg", 107};
inline constexpr LogPosition kInitDone{"ee_reg", 110};
inline constexpr LogPosition kDumpFailed{"ee_reg", 131};

inline constexpr LogPosition kPrintHardwareSet{"ee_reg_hw_def", 8};
inline constexpr LogPosition kPrintSoftwareSet{"ee_reg_sw_def", 8};

inline constexpr LogPosition kNegativeRange{"ee_hw", 214};
inline constexpr LogPosition kCoreDepth{"ee_hw", 307};
inline constexpr LogPosition kDeltaHistogram{"ee_hw", 402};
inline constexpr LogPosition kChromaLevels{"ee_hw", 561};
inline constexpr LogPosition kMotionLevels{"ee_hw", 603};
inline constexpr LogPosition kShootMode{"ee_hw", 688};
inline constexpr LogPosition kShootEntry{"ee_hw", 745};
inline constexpr LogPosition kClassicPlaneSize{"ee_hw", 852};

inline constexpr LogPosition kPlaneSize{"pre_ee_hw", 58};
inline constexpr LogPosition kNoFusion{"pre_ee_hw", 63};
inline constexpr LogPosition kTextureOff{"pre_ee_hw", 94};
inline constexpr LogPosition kTextureOn{"pre_ee_hw", 97};

inline constexpr LogPosition kBlockEnable{"pre_ee_main", 94};
inline constexpr LogPosition kTextureInRgb{"pre_ee_main", 102};
inline constexpr LogPosition kPlaneDepth{"pre_ee_main", 126};
inline constexpr LogPosition kChromaSize{"pre_ee_main", 131};
inline constexpr LogPosition kImageNames{"pre_ee_main", 144};

}  // namespace at
}  // namespace cm

#endif
