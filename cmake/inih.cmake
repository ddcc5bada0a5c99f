# inih, with the run-time switches that give it a line buffer of two million characters.
include(CheckCXXSourceCompiles)
include(CMakePushCheckState)

find_path(INIH_INCLUDE_DIR ini.h)
find_library(INIH_LIBRARY inih)
if(NOT INIH_INCLUDE_DIR OR NOT INIH_LIBRARY)
    message(FATAL_ERROR "inih not found: install the package libinih-dev")
endif()

cmake_push_check_state(RESET)
set(CMAKE_REQUIRED_INCLUDES ${INIH_INCLUDE_DIR})
set(CMAKE_REQUIRED_LIBRARIES ${INIH_LIBRARY})
foreach(switch ini_use_stack ini_max_line ini_initial_alloc)
    check_cxx_source_compiles("#include <ini.h>\nint main() { return static_cast<int>(${switch}); }"
                              CMODEL_HAVE_${switch})
    if(NOT CMODEL_HAVE_${switch})
        message(FATAL_ERROR "this system's inih has no run-time switch '${switch}'; the register loader "
                            "needs ini_use_stack, ini_max_line and ini_initial_alloc to read long lines")
    endif()
endforeach()
cmake_pop_check_state()

add_library(inih INTERFACE)
target_include_directories(inih SYSTEM INTERFACE ${INIH_INCLUDE_DIR})
# By name, so that a static link takes the static library.
get_filename_component(INIH_LIBRARY_DIR ${INIH_LIBRARY} DIRECTORY)
target_link_directories(inih INTERFACE ${INIH_LIBRARY_DIR})
target_link_libraries(inih INTERFACE -linih)
