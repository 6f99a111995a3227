# SPDX-License-Identifier: MIT
#
# How tavor is compiled and linked, for itself and for the programs that it is measured against.

include(hardening)

# tavor_program(<target>): C++ without the C++ run-time library, as small as it gets.
function(tavor_program target)
  # Even <stdlib.h> would be the C++ library's, and every case would pay for it.
  target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-nostdinc++>)
  target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>
                                           -ffunction-sections -fdata-sections)
  # It spends its time in the library and in waits: small beats fast.
  target_compile_options(${target} PRIVATE $<$<CONFIG:RelWithDebInfo>:-Os>)
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
  target_link_options(${target} PRIVATE -Wl,--as-needed -Wl,--enable-new-dtags)
  if(NOT TAVOR_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,--gc-sections)
  endif()
  tavor_harden(${target})
endfunction()
