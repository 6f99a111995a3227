# SPDX-License-Identifier: MIT
#
# tavor_libkel: the library that tavor is linked against, the reference one or the platform's,
# and TAVOR_LIBKEL_RUNPATH, where a tavor in the build tree finds it.

if(KEL_LIBRARY)
  add_library(tavor_libkel SHARED IMPORTED)
  # Linked as -lkel, a library without a soname is asked for by name, not by where it lay.
  set_target_properties(tavor_libkel PROPERTIES IMPORTED_LOCATION "${KEL_LIBRARY}"
                                                IMPORTED_NO_SONAME ON)
  get_filename_component(TAVOR_LIBKEL_RUNPATH "${KEL_LIBRARY}" DIRECTORY)
else()
  add_library(tavor_libkel ALIAS kel)
  set(TAVOR_LIBKEL_RUNPATH "$ORIGIN/../lib")
endif()
