# SPDX-License-Identifier: MIT
#
# What a user may set. A build without a build type is an optimised one.

# Off where somebody only wants to build: a newer compiler has newer warnings. Developers' presets
# switch it on.
option(TAVOR_WERROR "Treat warnings as errors" OFF)

set(KEL_LIBRARY "" CACHE FILEPATH
    "The platform's libkel.so to link tavor against; empty: the reference library")
if(KEL_LIBRARY AND NOT EXISTS "${KEL_LIBRARY}")
  message(FATAL_ERROR "KEL_LIBRARY: no such file: ${KEL_LIBRARY}")
endif()

option(TAVOR_CTEST_CASES "Make each case of tavor a ctest test" OFF)

set(TAVOR_SANITIZE "" CACHE STRING "Sanitizers, separated by commas, e.g. address,undefined")

set(TAVOR_TARGET "" CACHE STRING "Build target path recorded in tavor; empty: made up from the build")
set(TAVOR_TREE "" CACHE STRING "Source tree location recorded in tavor; empty: git describe")
set(TAVOR_IMAGE "tavor" CACHE STRING "Image name recorded in tavor")

# tavor alone needs a compiler and nothing else; the tests need libraries that a machine which
# only runs tavor does not have. AUTO builds them where these are installed.
set(TAVOR_TESTS "AUTO" CACHE STRING "Build tests and benchmarks: ON, OFF or AUTO")
set_property(CACHE TAVOR_TESTS PROPERTY STRINGS AUTO ON OFF)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set_property(CACHE CMAKE_BUILD_TYPE PROPERTY VALUE RelWithDebInfo)
endif()

# No NDEBUG: the reference library keeps its assertions in every build.
foreach(lang IN ITEMS C CXX)
  string(REPLACE "-DNDEBUG" "" CMAKE_${lang}_FLAGS_RELEASE "${CMAKE_${lang}_FLAGS_RELEASE}")
  set(CMAKE_${lang}_FLAGS_RELWITHDEBINFO "-O2 -g")
  set(CMAKE_${lang}_FLAGS_DEBUG "-O0 -g")
endforeach()
add_compile_definitions($<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CONFIG:Debug>>:_GLIBCXX_ASSERTIONS>)

# Where there is a compiler cache it is used, whether or not somebody has asked for it. It has to be
# told that precompiled headers may be relied on.
find_program(TAVOR_CCACHE ccache DOC "The compiler cache; empty or not found: none")
foreach(lang IN ITEMS C CXX)
  if(TAVOR_CCACHE AND NOT CMAKE_${lang}_COMPILER_LAUNCHER)
    set(CMAKE_${lang}_COMPILER_LAUNCHER
        "${CMAKE_COMMAND}" -E env "CCACHE_SLOPPINESS=pch_defines,time_macros" "${TAVOR_CCACHE}")
  endif()
endforeach()
