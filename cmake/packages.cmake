# Debian packages of the three components; scripts/package configures, builds and makes them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ostrum)
set(CPACK_PACKAGE_VENDOR "Ostrum")
set(CPACK_PACKAGE_CONTACT "Ostrum maintainers <maintainers@ostrum.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime dev tool)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_TOOL_DEPENDS runtime)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON) # of the same version
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)

set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=") # names are added without a new SONAME
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libostrum2)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"performance tracing inside servers - shared library
Ostrum times the numbered operations of a transaction-processing server from
inside the process, aggregates them by call path into text files, and keeps
live counters in a memory-mapped file. This is what traced servers load.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libostrum-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS ostrum-tool)
set(CPACK_COMPONENT_DEV_DESCRIPTION
"performance tracing inside servers - headers
What it takes to build a server that Ostrum traces, or a program that reads
its live figures: C headers, the manual pages of the interface, and the files
that pkg-config and CMake find the library by.")
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME ostrum-tool)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOL_DESCRIPTION
"performance tracing inside servers - reports and metrics
The program ostrum reads what traced servers write: call trees, comparisons,
flame graphs and timelines from trace files, live tables of the counters,
metrics for Prometheus; and it switches tracing on and off.")

# What Debian expects of packages, and no plain installation needs.
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/complete.cmake)
set(CPACK_OSTRUM_SOURCE_DIR ${PROJECT_SOURCE_DIR})

include(CPack)
