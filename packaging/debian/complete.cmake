# Run by CPack over the folders that it makes packages of. Compresses manual pages, gives each package its copyright
# file and changelog, and takes out how files find each other wherever they are: the system knows these places.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    set(root ${CPACK_TEMPORARY_DIRECTORY}/${component}${CPACK_PACKAGING_INSTALL_PREFIX})
    set(documents ${root}/share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    file(COPY ${CPACK_OSTRUM_SOURCE_DIR}/packaging/debian/copyright DESTINATION ${documents})
    configure_file(${CPACK_OSTRUM_SOURCE_DIR}/packaging/debian/changelog.in ${documents}/changelog.Debian @ONLY)
    if(component STREQUAL "tool")
        file(RPATH_REMOVE FILE ${root}/bin/ostrum)
        # Its flame graphs hold other people's work, with their licences.
        execute_process(COMMAND awk [[
                /^-->/ { exit }
                /^ *Apache License$/ { print "See /usr/share/common-licenses/Apache-2.0."; known = 1 }
                /^---/ { known = 0; print "" }
                inside && !known
                /^<!--/ { inside = 1 }]] ${CPACK_OSTRUM_SOURCE_DIR}/tools/ostrum/flame/flame_page.html
            OUTPUT_VARIABLE licences COMMAND_ERROR_IS_FATAL ANY)
        file(APPEND ${documents}/copyright "\nThe page that \"ostrum flame\" writes:\n\n${licences}")
    endif()
    file(GLOB_RECURSE relocatable ${root}/lib/*/pkgconfig/ostrum.pc)
    foreach(file IN LISTS relocatable)
        file(READ ${file} content)
        string(REGEX REPLACE "prefix=[^\n]*/\n" "prefix=${CPACK_PACKAGING_INSTALL_PREFIX}\n" content "${content}")
        file(WRITE ${file} "${content}")
    endforeach()
    file(GLOB_RECURSE pages ${root}/share/man/*.[1-8])
    execute_process(COMMAND gzip -9n ${documents}/changelog.Debian ${pages} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
