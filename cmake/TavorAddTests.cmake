# SPDX-License-Identifier: MIT
#
# tavor_add_tests: one ctest test a case of tavor, from the list of cases alone. Nothing is run
# before ctest is, so that it serves a cross build too.
#
#   tavor_add_tests([TARGET <target> | COMMAND <command> [argument...]]
#                   [LIBRARY_PATH <folder>...] [PREFIX <prefix>] [TIMEOUT <seconds>]
#                   [LABELS <label>...] [EXCLUSIVE])
#
# TARGET        the tavor to run; tavor::tavor without TARGET and COMMAND
# COMMAND       what runs tavor; the name of the case is its last argument
# LIBRARY_PATH  where the loader looks for libkel.so first
# PREFIX        stands before the name of the case in the name of the test
# TIMEOUT       seconds a case may take, 60 without it
# LABELS        labels beside that of the suite
# EXCLUSIVE     one case at a time: for a libkel whose tags and groups all processes share
#
# A test passes if tavor ran its case and none other, said PASS, and nothing comes behind the
# summary; it is skipped if that word is IGNORE. Everything else is a failure: a FAIL, an
# end before the summary, a report that a sanitizer adds.

include_guard(GLOBAL)

if(EXISTS "${CMAKE_CURRENT_LIST_DIR}/../test_list.def")
  set(TAVOR_TEST_LIST "${CMAKE_CURRENT_LIST_DIR}/../test_list.def")
else()
  set(TAVOR_TEST_LIST "${CMAKE_CURRENT_LIST_DIR}/../runner/test_list.def")
endif()
get_filename_component(TAVOR_TEST_LIST "${TAVOR_TEST_LIST}" ABSOLUTE)

# These compare the clock with what happened, or must be in a call before a second is over.
set(TAVOR_TIMED_CASES "^kel_sendrecv_recv_no_sig|^kel_event_wait_(interrupt|unregis)")

# tavor_read_cases(<result>): all cases in table order, each as "suite name".
function(tavor_read_cases result)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${TAVOR_TEST_LIST}")
  file(STRINGS "${TAVOR_TEST_LIST}" lines REGEX "^TEST\\(")
  list(TRANSFORM lines REPLACE "^TEST\\(([a-z0-9_]+), *([a-z0-9_]+)\\)$" "\\1 \\1_\\2")
  if(NOT lines OR "${lines}" MATCHES "TEST")
    message(FATAL_ERROR "${TAVOR_TEST_LIST} is no list of cases")
  endif()
  set(${result} "${lines}" PARENT_SCOPE)
endfunction()

# What tavor prints for the case alone, if the verdict is as given.
function(tavor_output_of result test verdict)
  string(SUBSTRING "${test}" 0 40 shown) # tavor cuts it there
  set(${result} "\n${shown} +(.*\n)?${verdict}\n=+\nSummary: [^\n]* 1\n[^\n]*passed: +1\n\
[^\n]*failed: +0\nCongratulations!\n$" PARENT_SCOPE)
endfunction()

function(tavor_add_tests)
  cmake_parse_arguments(PARSE_ARGV 0 arg "EXCLUSIVE" "TARGET;PREFIX;TIMEOUT"
                        "COMMAND;LIBRARY_PATH;LABELS")
  if(arg_UNPARSED_ARGUMENTS OR arg_KEYWORDS_MISSING_VALUES)
    message(FATAL_ERROR "tavor_add_tests: cannot be understood: ${arg_UNPARSED_ARGUMENTS} "
                        "${arg_KEYWORDS_MISSING_VALUES}")
  endif()
  if(arg_TARGET AND arg_COMMAND)
    message(FATAL_ERROR "tavor_add_tests: TARGET and COMMAND exclude each other")
  endif()
  if(NOT arg_TARGET AND NOT arg_COMMAND)
    set(arg_TARGET tavor::tavor)
  endif()
  if(arg_TARGET AND NOT TARGET "${arg_TARGET}")
    message(FATAL_ERROR "tavor_add_tests: there is no target ${arg_TARGET}")
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 60)
  endif()

  set(properties TIMEOUT "${arg_TIMEOUT}" FAIL_REGULAR_EXPRESSION "FAIL : ")
  if(arg_LIBRARY_PATH)
    list(JOIN arg_LIBRARY_PATH ":" folders)
    list(APPEND properties ENVIRONMENT_MODIFICATION
         "LD_LIBRARY_PATH=path_list_prepend:${folders}")
  endif()
  if(arg_EXCLUSIVE)
    list(APPEND properties RESOURCE_LOCK libkel)
  endif()

  tavor_read_cases(cases)
  foreach(case IN LISTS cases)
    string(REPLACE " " ";" case "${case}")
    list(GET case 0 suite)
    list(GET case 1 test)
    set(name "${arg_PREFIX}${test}")
    tavor_output_of(pass "${test}" PASS)
    tavor_output_of(ignore "${test}" IGNORE)
    set(serial OFF)
    if(test MATCHES "${TAVOR_TIMED_CASES}")
      set(serial ON)
    endif()
    add_test(NAME "${name}" COMMAND ${arg_TARGET} ${arg_COMMAND} "${test}")
    set_tests_properties(
      "${name}" PROPERTIES ${properties} LABELS "${suite};${arg_LABELS}"
      PASS_REGULAR_EXPRESSION "${pass}" SKIP_REGULAR_EXPRESSION "${ignore}"
      RUN_SERIAL "${serial}")
  endforeach()
endfunction()
