# SPDX-License-Identifier: MIT
#
# Installs tavor, configures the consumer with the installed module and judges what ctest says
# of it: cmake -DBUILD=... -DGENERATOR=... -DCONSUMER=... -DWORK=... -P check.cmake

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

count_tests(-L "^real$" -j2)
file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/../../runner/test_list.def" rows REGEX "^TEST")
list(LENGTH rows cases)
expect(${cases} 0 18)
message(STATUS "${output}")

# The label is the suite's: kel_send is not kel_sendrecv.
count_tests(-L "^real$" -L "^kel_send$")
expect(3 0 0)

set(ENV{KEL_REFERENCE_FAULTS} "tlv_setdata#1+:one_short")
count_tests(-R "^real.kel_tlv_setdata$")
expect(1 1 0)
unset(ENV{KEL_REFERENCE_FAULTS})

# A name of more than 40 characters, of which tavor shows 40.
foreach(test IN ITEMS kel_buf_append kel_bufgroup_reserved_get_invalid_tlv_packet_list)
  foreach(kind IN ITEMS pass progress)
    count_tests(-R "^${kind}.${test}$")
    expect(1 0 0)
  endforeach()
  count_tests(-R "^ignore.${test}$")
  expect(1 0 1)
  foreach(kind IN ITEMS fail silent crash behind_summary hang)
    count_tests(-R "^${kind}.${test}$")
    expect(1 1 0)
  endforeach()
endforeach()
count_tests(-R "^other_case.kel_buf_append$")
expect(1 1 0)
