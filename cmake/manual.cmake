# Manual pages from docs/man, and completions for the shells.
set(completions ${PROJECT_SOURCE_DIR}/tools/completions)
set(bash_dir ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${completions}/eetool.bash DESTINATION ${bash_dir} RENAME eetool)
install(FILES ${completions}/pre_ee_main.bash DESTINATION ${bash_dir} RENAME pre_ee_main)
set(CMODEL_ZSH_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING "Where zsh looks, below the prefix")
install(FILES ${completions}/_eetool DESTINATION ${CMODEL_ZSH_DIR})
install(FILES ${completions}/eetool.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)

find_program(SCDOC scdoc)
if(NOT SCDOC)
    message(STATUS "scdoc was not found: manual pages are left out")
    return()
endif()

set(man_source ${PROJECT_SOURCE_DIR}/docs/man)
set(man_dir ${PROJECT_BINARY_DIR}/man)
file(MAKE_DIRECTORY ${man_dir})
add_custom_command(OUTPUT ${man_dir}/registers.scd DEPENDS print_tables
    COMMAND print_tables manual >${man_dir}/registers.scd)

file(GLOB sources CONFIGURE_DEPENDS ${man_source}/*.scd)
file(GLOB subcommands RELATIVE ${man_source} CONFIGURE_DEPENDS ${man_source}/eetool-*.1.scd)
list(TRANSFORM subcommands REPLACE "eetool-(.*).1.scd" "\\1")
set(pages)
foreach(source IN LISTS sources)
    get_filename_component(page ${source} NAME_WLE)
    if(page MATCHES "[.]([15])$")
        set(section ${CMAKE_MATCH_1})
        add_custom_command(OUTPUT ${man_dir}/${page}
            DEPENDS ${sources} ${man_dir}/registers.scd ${PROJECT_SOURCE_DIR}/cmake/manual_page.cmake
            COMMAND ${CMAKE_COMMAND} -DPAGE=${source} -DOUT=${man_dir}/${page} -DVERSION=${PROJECT_VERSION}
                -DSCDOC=${SCDOC} -DREGISTERS=${man_dir}/registers.scd "-DSUBCOMMANDS=${subcommands}"
                -P ${PROJECT_SOURCE_DIR}/cmake/manual_page.cmake
            VERBATIM)
        list(APPEND pages ${man_dir}/${page})
        install(FILES ${man_dir}/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
    endif()
endforeach()
add_custom_target(manual ALL DEPENDS ${pages})
