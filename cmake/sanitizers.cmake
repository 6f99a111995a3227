# SPDX-License-Identifier: MIT
#
# One choice for the whole tree: a sanitised tavor against a plain libkel would see nothing.

if(TAVOR_SANITIZE)
  add_compile_options(-fsanitize=${TAVOR_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TAVOR_SANITIZE})
  # Enough for line numbers in reports.
  add_compile_options($<$<CONFIG:RelWithDebInfo>:-O1> $<$<CONFIG:RelWithDebInfo>:-g1>)
  if(TAVOR_SANITIZE MATCHES "undefined" AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # These two need the C++ run-time library, which tavor does without.
    add_compile_options(-fno-sanitize=function,vptr)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # In instrumented code g++ takes libstdc++'s own variables for uninitialised.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
  if(TAVOR_SANITIZE MATCHES "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # g++ warns of fences in libstdc++ that it cannot follow.
    add_compile_options(-Wno-tsan)
  endif()
endif()
