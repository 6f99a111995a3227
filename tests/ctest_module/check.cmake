# SPDX-License-Identifier: MIT
#
# Installs tavor, configures the consumer with the installed module and judges what ctest says
# of it: cmake -DBUILD=... -DGENERATOR=... -DCONSUMER=... -DWORK=... -P check.cmake

cmake_minimum_required(VERSION 3.25)
set(ENV{CTEST_OUTPUT_ON_FAILURE} "")
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")

# run(<command>...): its output in ${output}; it must succeed.
macro(run)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output ERROR_VARIABLE output
                  COMMAND_ERROR_IS_FATAL ANY)
endmacro()

# count_tests(<ctest argument>...): ${total}, ${failed} and ${skipped} of these tests.
macro(count_tests)
  execute_process(COMMAND "${CMAKE_CTEST_COMMAND}" --test-dir "${WORK}/build" ${ARGN}
                  OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT output MATCHES "([0-9]+) tests failed out of ([0-9]+)")
    message(FATAL_ERROR "no summary in:\n${output}")
  endif()
  set(failed "${CMAKE_MATCH_1}")
  set(total "${CMAKE_MATCH_2}")
  string(REGEX MATCHALL "\\*\\*\\*Skipped" skipped_lines "${output}")
  list(LENGTH skipped_lines skipped)
endmacro()

# expect(<total> <failed> <skipped>)
function(expect want_total want_failed want_skipped)
  if(NOT "${total} ${failed} ${skipped}" STREQUAL "${want_total} ${want_failed} ${want_skipped}")
    message(FATAL_ERROR "of ${total} tests ${failed} failed, ${skipped} were skipped, not "
                        "${want_failed} and ${want_skipped} of ${want_total}:\n${output}")
  endif()
endfunction()

foreach(component IN ITEMS tavor reference dev)
  run("${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${WORK}/prefix" --component ${component})
endforeach()
run("${CMAKE_COMMAND}" -G "${GENERATOR}" -S "${CONSUMER}" -B "${WORK}/build"
    "-DCMAKE_PREFIX_PATH=${WORK}/prefix")
run("${CMAKE_COMMAND}" --build "${WORK}/build")

file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/../../runner/test_list.def" rows REGEX "^TEST")
list(LENGTH rows cases)
math(EXPR untimed "${cases} - 7")
# Most of them wait most of the time; those that the clock decides may take three tries.
set(timed "kel_sendrecv_recv_no_sig|kel_event_wait_(interrupt|unregis)")
count_tests(-L "^real$" -E "${timed}" -j8)
expect(${untimed} 0 18)
message(STATUS "${output}")
count_tests(-L "^real$" -R "${timed}" --repeat until-pass:3)
expect(7 0 0)

# The label is the suite's: kel_send is not kel_sendrecv.
count_tests(-L "^real$" -L "^kel_send$")
expect(3 0 0)

set(ENV{KEL_REFERENCE_FAULTS} "tlv_setdata#1+:one_short")
count_tests(-R "^real.kel_tlv_setdata$")
expect(1 1 0)
unset(ENV{KEL_REFERENCE_FAULTS})

# One run for all kinds of output, since each reads thousands of tests. The second name has more than
# 40 characters, of which tavor shows 40.
set(short kel_buf_append)
set(long kel_bufgroup_reserved_get_invalid_tlv_packet_list)
set(kinds pass progress ignore fail silent crash behind_summary hang)
list(JOIN kinds "|" any_kind)
count_tests(-R "^((${any_kind})\\.(${short}|${long})|other_case\\.${short})$" -j8)
expect(17 11 2)

# expect_of(<test> <word of ctest>...): one of the words stands behind the test's name.
function(expect_of test)
  string(REGEX MATCH " ${test} \\.+ *([*A-Za-z]+)" line "${output}")
  if(NOT CMAKE_MATCH_1 IN_LIST ARGN)
    message(FATAL_ERROR "${test}: ${CMAKE_MATCH_1}, not ${ARGN}:\n${output}")
  endif()
endfunction()

foreach(test IN ITEMS ${short} ${long})
  foreach(kind IN ITEMS pass progress)
    expect_of(${kind}.${test} Passed)
  endforeach()
  expect_of(ignore.${test} ***Skipped)
  foreach(kind IN ITEMS fail silent crash behind_summary)
    expect_of(${kind}.${test} ***Failed ***Exception)
  endforeach()
  expect_of(hang.${test} ***Timeout)
endforeach()
expect_of(other_case.${short} ***Failed)
