# Options of every target of this project, and those of the library alone.

find_package(Threads REQUIRED)

set(OSTRUM_WARNINGS -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wcast-align
    -Wformat=2 -Wundef -Wnull-dereference -Werror)
add_library(ostrum_options INTERFACE)
target_compile_options(ostrum_options INTERFACE
    ${OSTRUM_WARNINGS} -fno-omit-frame-pointer
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast -Wextra-semi
        -Wno-missing-field-initializers>) # designated initialisers leave the rest at their defaults

# g++ 12 reports impossible overlaps inside its own std::string (its bug 105651).
target_compile_options(ostrum_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)

# A relative source path in every build: file names in output and in messages do not depend on where
# the tree was checked out.
target_compile_options(ostrum_options INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)

if(OSTRUM_SANITIZE)
    # Sanitizer code confuses g++ about what is initialised or null; the sanitizers themselves see better.
    add_compile_options(-fsanitize=${OSTRUM_SANITIZE} -fno-sanitize-recover=all -g1
        $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized> $<$<CXX_COMPILER_ID:GNU>:-Wno-null-dereference>)
    add_link_options(-fsanitize=${OSTRUM_SANITIZE})
endif()
if(OSTRUM_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link -fno-sanitize=vptr) # the library has no run-time types
    add_link_options(-fno-sanitize=vptr)
endif()
if(OSTRUM_COVERAGE)
    add_compile_options(--coverage -fprofile-update=atomic) # threads count at the same time
    # A branch of a function that is always taken in counts once, not once a place into which it is taken.
    add_compile_definitions(always_inline=unused)
    add_link_options(--coverage)
endif()

# The library itself: no exceptions, no run-time types, nothing visible that is not exported.
add_library(ostrum_library_options INTERFACE)
target_link_libraries(ostrum_library_options INTERFACE ostrum_options Threads::Threads)
target_compile_options(ostrum_library_options INTERFACE
    -fvisibility=hidden $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fvisibility-inlines-hidden>)
# The released library is optimised as a whole: a hook goes through a dozen small functions of several
# units. The objects keep ordinary code beside it, for the tests that link them.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(ostrum_library_options INTERFACE $<$<CONFIG:Release>:-flto=auto;-ffat-lto-objects>)
endif()
target_include_directories(ostrum_library_options INTERFACE
    ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/source ${PROJECT_SOURCE_DIR}/platform/include)
