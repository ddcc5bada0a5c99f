# Writes the header OUT with VERSION and the commit that SOURCE stands at, "-dirty" when files differ from it,
# "unknown" without git. Runs in every build; the header changes, and is compiled anew, only when they do.
set(commit unknown)
if(EXISTS ${SOURCE}/.git)
    execute_process(COMMAND git -C ${SOURCE} describe --always --exclude=* --abbrev=12 --dirty
                    OUTPUT_VARIABLE said OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE status)
    if(status STREQUAL "0")
        set(commit ${said})
    endif()
endif()
file(CONFIGURE OUTPUT ${OUT} CONTENT [[
#define CMODEL_VERSION "@VERSION@"
#define CMODEL_COMMIT "@commit@"
]] @ONLY)
