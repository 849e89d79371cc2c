# What `cmake --install` puts where, in four components: runtime (the shared library), dev (what building a
# host takes), tool (the program "ostrum" and what its users need) and, only by name, demo (the sample programs).
# Nothing installed names the prefix: the whole can be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(OSTRUM_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ostrum)
set(OSTRUM_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(OSTRUM_SHARE_DIR ${CMAKE_INSTALL_DATADIR}/ostrum)
set(packaging ${PROJECT_SOURCE_DIR}/packaging)
set(generated ${PROJECT_BINARY_DIR}/packaging)

# ---- runtime and dev: the library
set(public_headers include/ostrum.h include/ostrum_data.h include/ostrum_util.h)
install(TARGETS ostrum EXPORT ostrum-core
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(EXPORT ostrum-core DESTINATION ${OSTRUM_CMAKE_DIR} COMPONENT dev
    NAMESPACE ostrum:: FILE ostrum-core-targets.cmake)
configure_package_config_file(${packaging}/cmake/ostrumConfig.cmake.in ${generated}/ostrumConfig.cmake
    INSTALL_DESTINATION ${OSTRUM_CMAKE_DIR})
write_basic_package_version_file(${generated}/ostrumConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${generated}/ostrumConfig.cmake ${generated}/ostrumConfigVersion.cmake
    DESTINATION ${OSTRUM_CMAKE_DIR} COMPONENT dev)
file(RELATIVE_PATH OSTRUM_PREFIX_FROM_PKGCONFIG /${OSTRUM_PKGCONFIG_DIR} /)
configure_file(${packaging}/ostrum.pc.in ${generated}/ostrum.pc @ONLY)
install(FILES ${generated}/ostrum.pc DESTINATION ${OSTRUM_PKGCONFIG_DIR} COMPONENT dev)
install(FILES CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(FILES examples/monitor.c DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT dev)
install(FILES docs/performance.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)

# ---- tool: the program, what other programs need to use its output, and the exporter as a service
if(OSTRUM_BUILD_TOOL)
    file(RELATIVE_PATH library_from_program /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
    set_target_properties(ostrum_tool PROPERTIES EXPORT_NAME tool INSTALL_RPATH "$ORIGIN/${library_from_program}")
    install(TARGETS ostrum_tool EXPORT ostrum-tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
    install(EXPORT ostrum-tool DESTINATION ${OSTRUM_CMAKE_DIR} COMPONENT tool
        NAMESPACE ostrum:: FILE ostrum-tool-targets.cmake)
    install(DIRECTORY tools/ostrum/share/ tools/ostrum/schema DESTINATION ${OSTRUM_SHARE_DIR} COMPONENT tool)
    file(GLOB operators_documents CONFIGURE_DEPENDS docs/tool.md docs/operating.md docs/formats.md docs/settings.md docs/diagnostics.md)
    install(FILES ${operators_documents} DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tool)

    install(FILES ${packaging}/systemd/ostrum-exporter@.service DESTINATION lib/systemd/system COMPONENT tool)
    install(FILES ${packaging}/systemd/ostrum-exporter.env ${packaging}/systemd/ostrum-retention.conf
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT tool)
endif()

# ---- manual pages and completions, as far as their targets have made them
function(install_made component from to)
    install(DIRECTORY ${PROJECT_BINARY_DIR}/${from}/ DESTINATION ${to} COMPONENT ${component} OPTIONAL)
endfunction()
set(OSTRUM_ZSH_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING "Where zsh looks for completions")
install_made(tool man/man1 ${CMAKE_INSTALL_MANDIR}/man1)
install_made(dev man/man3 ${CMAKE_INSTALL_MANDIR}/man3)
install_made(tool man/man5 ${CMAKE_INSTALL_MANDIR}/man5)
install_made(tool completions/bash ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install_made(tool completions/zsh ${OSTRUM_ZSH_DIR})
install_made(tool completions/fish ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)

# All that is installed, and nothing else.
add_custom_target(ostrum_installed)
foreach(target ostrum ostrum_tool ostrum_man ostrum_completions)
    if(TARGET ${target})
        add_dependencies(ostrum_installed ${target})
    endif()
endforeach()
