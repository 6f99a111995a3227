# SPDX-License-Identifier: MIT
#
# The three texts of the build-identification records. Defaults depend on the sources and the
# kind of build, never on the machine, the folder or the time.

function(tavor_describe_tree result)
  set(${result} "unknown" PARENT_SCOPE)
  find_package(Git QUIET)
  if(NOT GIT_FOUND)
    return()
  endif()
  execute_process(
    COMMAND "${GIT_EXECUTABLE}" describe --tags --always --dirty
    WORKING_DIRECTORY "${CMAKE_SOURCE_DIR}"
    OUTPUT_VARIABLE description
    OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE status
    ERROR_QUIET)
  if(NOT status EQUAL 0)
    return()
  endif()
  set(${result} "${description}" PARENT_SCOPE)
  # A commit changes the description without touching a source.
  if(EXISTS "${CMAKE_SOURCE_DIR}/.git/logs/HEAD")
    set_property(DIRECTORY "${CMAKE_SOURCE_DIR}" APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
                 "${CMAKE_SOURCE_DIR}/.git/logs/HEAD")
  endif()
endfunction()

set(tavor_target "${TAVOR_TARGET}")
if(NOT tavor_target)
  string(TOLOWER "${CMAKE_SYSTEM_NAME}" system)
  set(tavor_target "${CMAKE_SYSTEM_PROCESSOR}-${system}/${CMAKE_BUILD_TYPE}")
endif()

set(tavor_tree "${TAVOR_TREE}")
if(NOT tavor_tree)
  tavor_describe_tree(tavor_tree)
endif()

set(TAVOR_BUILD_ID_DEFINITIONS
    "TAVOR_TARGET_PATH=\"${tavor_target}\""
    "TAVOR_TREE_LOCATION=\"${tavor_tree}\""
    "TAVOR_IMAGE_NAME=\"${TAVOR_IMAGE}\"")
