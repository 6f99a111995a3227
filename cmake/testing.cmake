# SPDX-License-Identifier: MIT
#
# Whether tests are built, and the one form in which they are added.

set(TAVOR_BUILD_TESTS OFF)
if(KEL_LIBRARY)
  message(STATUS "Tests and benchmarks are not built: they are about the reference library")
elseif(BUILD_TESTING AND TAVOR_TESTS)
  set(wanted REQUIRED)
  if(TAVOR_TESTS STREQUAL "AUTO")
    set(wanted QUIET)
  endif()
  set(TAVOR_BUILD_TESTS ON)
  foreach(package IN ITEMS GTest CLI11 nlohmann_json benchmark)
    find_package(${package} ${wanted})
    if(NOT ${package}_FOUND)
      message(STATUS "Tests and benchmarks are not built: ${package} is missing")
      set(TAVOR_BUILD_TESTS OFF)
    endif()
  endforeach()
endif()

if(TAVOR_BUILD_TESTS)
  include(GoogleTest)
endif()

# Where a test finds what it runs.
function(tavor_test_paths target)
  target_compile_definitions(
    ${target}
    PRIVATE TAVOR_BINARY="$<TARGET_FILE:tavor>" KEL_REFERENCE_LIBRARY="$<TARGET_FILE:kel>"
            TAVOR_SOURCE_DIR="${PROJECT_SOURCE_DIR}" TAVOR_BUILD_DIR="${PROJECT_BINARY_DIR}")
  add_dependencies(${target} tavor kel)
endfunction()

# tavor_add_gtest(<name> SOURCES <file>... [LIBRARIES <library>...] [LABELS <label>...]
#                 [TIMEOUT <seconds>] [TIMED])
#
# A GoogleTest program, one ctest test a TEST, with sanitizers one in all. The name of its folder is
# a label beside those given. TIMED adds the label "timed": the clock has a part in its verdicts, and
# ./test repeats its failures alone before they count.
function(tavor_add_gtest name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "TIMED" "TIMEOUT" "SOURCES;LIBRARIES;LABELS")
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "tavor_add_gtest(${name}): unknown: ${arg_UNPARSED_ARGUMENTS}")
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()

  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE kelapi GTest::gmock GTest::gtest_main Threads::Threads
                                        ${arg_LIBRARIES})
  tavor_test_paths(${name})
  if(TARGET test_headers)
    target_precompile_headers(${name} REUSE_FROM test_headers)
  endif()

  get_filename_component(folder "${CMAKE_CURRENT_SOURCE_DIR}" NAME)
  set(labels ${arg_LABELS} ${folder})
  if(arg_TIMED)
    list(APPEND labels timed)
  endif()
  list(REMOVE_DUPLICATES labels)

  if(TAVOR_SANITIZE)
    # Such a program takes longer to start than most of its tests take.
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT 600 LABELS "${labels}")
    return()
  endif()

  gtest_discover_tests(
    ${name}
    TEST_PREFIX "${name}."
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    NO_PRETTY_VALUES
    WORKING_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}"
    PROPERTIES TIMEOUT "${arg_TIMEOUT}")

  # gtest_discover_tests takes lists apart: of several labels it would set the first.
  set(labels_file "${CMAKE_CURRENT_BINARY_DIR}/${name}_labels.cmake")
  file(WRITE "${labels_file}"
       "if(${name}_TESTS)\n"
       "  set_tests_properties(\${${name}_TESTS} PROPERTIES LABELS \"${labels}\")\n"
       "endif()\n")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${labels_file}")
endfunction()
