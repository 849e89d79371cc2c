# ostrum_unit(NAME FOLDER folder [DEPENDS unit...]): one folder of source/ as a static library of its own, compiled
# once and linked whole into libostrum.so and, as far as it is needed, into the internal tests.
# Functions of os_calls.h stay undefined in a unit: the final program chooses the real ones or the
# test's.
function(ostrum_unit name)
    cmake_parse_arguments(UNIT "" "FOLDER" "DEPENDS" ${ARGN})
    file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/source/${UNIT_FOLDER}/*.cpp)
    add_library(ostrum_${name} STATIC ${sources})
    target_link_libraries(ostrum_${name} PRIVATE ostrum_library_options PUBLIC Threads::Threads)
    foreach(unit ${UNIT_DEPENDS})
        target_link_libraries(ostrum_${name} PUBLIC ostrum_${unit})
    endforeach()
    set_property(GLOBAL APPEND PROPERTY OSTRUM_UNITS ostrum_${name})
endfunction()
