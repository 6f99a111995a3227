# SPDX-License-Identifier: MIT
#
# What is installed fails early where memory is written out of bounds: a guard behind arrays on the
# stack, checked calls of libc, and tables of addresses that are made before main and read-only.
# Sanitizers have their own checks.

# tavor_harden(<target>)
function(tavor_harden target)
  if(TAVOR_SANITIZE)
    return()
  endif()
  target_compile_options(${target} PRIVATE -fstack-protector-strong -U_FORTIFY_SOURCE
                                           $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now)
endfunction()
