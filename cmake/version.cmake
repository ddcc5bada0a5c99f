# Writes the header OUT with VERSION and the commit that SOURCE stands at, "-dirty" when files differ from it. An
# archive made by git has the commit in commit.txt; elsewhere it is "unknown". Runs in every build; the header changes,
# and is compiled anew, only when they do.
file(READ ${CMAKE_CURRENT_LIST_DIR}/commit.txt archived)
set(commit unknown)
if(archived MATCHES "^[0-9a-f]+")
    string(SUBSTRING ${archived} 0 12 commit)
endif()
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
