# Compile settings of every target, and the two functions that declare a library and its tests.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

set(QUARRO_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread")

add_library(quarro_settings INTERFACE)
target_include_directories(quarro_settings INTERFACE ${PROJECT_SOURCE_DIR})
# Results are the same to the bit on every machine: no fused or reordered arithmetic.
target_compile_options(quarro_settings INTERFACE -ffp-contract=off)
target_compile_options(
  quarro_settings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                            -Woverloaded-virtual -Wimplicit-fallthrough -Werror)
target_compile_definitions(quarro_settings INTERFACE BOOST_BIND_GLOBAL_PLACEHOLDERS)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC 12 reports these in standard containers where they cannot happen (GCC bugs 105329, 105562).
  target_compile_options(quarro_settings INTERFACE -Wno-restrict -Wno-maybe-uninitialized)
endif()
if(QUARRO_SANITIZE)
  target_compile_options(quarro_settings INTERFACE -fsanitize=${QUARRO_SANITIZE}
                                                   -fno-omit-frame-pointer)
  # In instrumented code compilers see overflows that cannot happen; the release build is strict.
  target_compile_options(quarro_settings INTERFACE -Wno-error)
  target_link_options(quarro_settings INTERFACE -fsanitize=${QUARRO_SANITIZE})
  if(QUARRO_SANITIZE MATCHES "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Boost.Asio has a memory fence, which the thread sanitizer does not see; locks order the same.
    target_compile_options(quarro_settings INTERFACE -Wno-tsan)
  endif()
  if(QUARRO_SANITIZE MATCHES "thread")
    # Otherwise libraries that are not instrumented would call this program's instances of the
    # standard library's templates instead of their own, and races be reported that are none.
    target_link_options(quarro_settings INTERFACE
                        -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/no_exports.map)
  endif()
  if(QUARRO_SANITIZE MATCHES "undefined")
    target_compile_options(quarro_settings INTERFACE -fno-sanitize-recover=undefined)
  endif()
endif()

option(QUARRO_FUZZ "Build the fuzz targets and instrument everything for them; needs Clang" OFF)
if(QUARRO_FUZZ)
  target_compile_options(
    quarro_settings INTERFACE -fsanitize=fuzzer-no-link,float-cast-overflow
                              -fno-sanitize-recover=all)
  target_link_options(quarro_settings INTERFACE -fsanitize=fuzzer-no-link,float-cast-overflow)
endif()

# quarro_library(<name> SOURCES ... [PUBLIC ...] [PRIVATE ...]): a static library of this project.
# PUBLIC and PRIVATE name what it links.
function(quarro_library name)
  cmake_parse_arguments(arg "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC quarro_settings ${arg_PUBLIC} PRIVATE ${arg_PRIVATE})
endfunction()

# quarro_test(<name> SOURCES ... LINK ...): a GoogleTest program that stands beside what it tests,
# run by ctest in a scratch directory of its own. GMock's main serves all.
# WHOLE: it starts whole engines and is too slow under sanitizers for every run of script/test.
function(quarro_test name)
  cmake_parse_arguments(arg "WHOLE" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE quarro_settings ${arg_LINK} GTest::gmock_main)
  target_compile_definitions(${name} PRIVATE QUARRO_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  set(scratch ${CMAKE_CURRENT_BINARY_DIR}/${name}.scratch)
  file(MAKE_DIRECTORY ${scratch})
  add_test(NAME ${name} COMMAND ${name} WORKING_DIRECTORY ${scratch})
  if(NOT arg_WHOLE)
    set_tests_properties(${name} PROPERTIES LABELS unit)
    if(NOT TARGET unit_tests)
      add_custom_target(unit_tests)
    endif()
    add_dependencies(unit_tests ${name})
  endif()
endfunction()
