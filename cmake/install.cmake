# What `cmake --install` puts in place: headers, both libraries with their CMake package and pkg-config file, the
# programs, the Python package, and settings to start from. Nothing in it names the prefix, so the tree can be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(CMODEL_PUBLIC_HEADERS
    cmodel/log/log.h
    cmodel/common/common.h
    cmodel/ee/src/ee_hw.h
    cmodel/ee/src/reg_parse/ee_reg.h
    cmodel/pre_ee/src/pre_ee_hw.h
    cmodel/model/cmodel.h)
list(TRANSFORM CMODEL_PUBLIC_HEADERS PREPEND ${PROJECT_SOURCE_DIR}/)

# Of libcmodel.so only the names of the headers are visible, each with its version.
set(exports ${PROJECT_SOURCE_DIR}/cmake/exports.map)
target_link_options(cmodel_shared PRIVATE LINKER:--version-script=${exports})
set_property(TARGET cmodel_shared APPEND PROPERTY LINK_DEPENDS ${exports})

set_target_properties(cmodel_shared PROPERTIES EXPORT_NAME cmodel)
target_link_libraries(cmodel_static INTERFACE $<INSTALL_INTERFACE:-linih>)

# The headers include each other by bare name, so users get both <cmodel/ee_hw.h> and <ee_hw.h>.
set(include_dir ${CMAKE_INSTALL_INCLUDEDIR}/cmodel)
install(TARGETS cmodel_shared cmodel_static EXPORT cmodel
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} ${include_dir})
install(FILES ${CMODEL_PUBLIC_HEADERS} cmodel/ee/src/reg_parse/ee_reg_hw_def.inc DESTINATION ${include_dir})
install(TARGETS pre_ee_main)
if(TARGET eetool)
    install(TARGETS eetool)
endif()

set(CMODEL_PYTHON_DIR lib/python3/dist-packages CACHE STRING "Where the Python package goes, below the prefix")
install(DIRECTORY python/cmodel DESTINATION ${CMODEL_PYTHON_DIR}
        FILES_MATCHING PATTERN *.py PATTERN py.typed PATTERN __pycache__ EXCLUDE)
install(DIRECTORY settings DESTINATION ${CMAKE_INSTALL_DATADIR}/cmodel)
# The tuning page, if `make page` has made it.
install(FILES ${PROJECT_SOURCE_DIR}/build/page/tuning.html DESTINATION ${CMAKE_INSTALL_DATADIR}/cmodel OPTIONAL)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/cmodel)
install(EXPORT cmodel NAMESPACE cmodel:: FILE cmodel-config.cmake DESTINATION ${package_dir})
write_basic_package_version_file(cmodel-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/cmodel-config-version.cmake DESTINATION ${package_dir})

file(RELATIVE_PATH pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
foreach(pc cmodel cmodel-libdir)
    configure_file(cmake/${pc}.pc.in ${pc}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
# The static library, where no shared one is in the linker's way.
set(static_link ${CMAKE_CURRENT_BINARY_DIR}/static_link)
file(MAKE_DIRECTORY ${static_link})
file(CREATE_LINK ../libcmodel.a ${static_link}/libcmodel.a SYMBOLIC)
install(FILES ${static_link}/libcmodel.a DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmodel)
