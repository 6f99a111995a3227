# SPDX-License-Identifier: MIT
#
# Warnings for all sources of ours, the same under g++ and clang++ as far as they go.

set(TAVOR_WARNINGS
    -Wall
    -Wextra
    -Wpedantic
    -Wshadow
    -Wconversion
    -Wsign-conversion
    -Wdouble-promotion
    -Wcast-align
    -Wcast-qual
    -Wformat=2
    -Wundef
    -Wvla
    -Wmissing-declarations
    -Wimplicit-fallthrough)

set(TAVOR_WARNINGS_CXX -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # -Wnull-dereference is left to clang: with g++ -O2 it reports the insides of libstdc++.
  list(APPEND TAVOR_WARNINGS -Wduplicated-cond -Wduplicated-branches -Wlogical-op)
  if(CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # With -O3 g++ 12 takes "text" + std::string for a copy onto itself.
    list(APPEND TAVOR_WARNINGS -Wno-restrict)
  endif()
else()
  # clang++ checks functions under this name only.
  list(APPEND TAVOR_WARNINGS -Wnull-dereference -Wmissing-prototypes)
endif()

if(TAVOR_WERROR)
  list(APPEND TAVOR_WARNINGS -Werror)
endif()

add_compile_options(${TAVOR_WARNINGS} "$<$<COMPILE_LANGUAGE:CXX>:${TAVOR_WARNINGS_CXX}>")
