# SPDX-License-Identifier: MIT
#
# The same sources give the same bytes in whatever folder they are built.

add_compile_options("-ffile-prefix-map=${CMAKE_SOURCE_DIR}=."
                    "-ffile-prefix-map=${CMAKE_BINARY_DIR}=.")
