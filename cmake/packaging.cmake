# SPDX-License-Identifier: MIT
#
# What is installed beside the programs, and the Debian packages. A component is a package:
#
#   tavor      tavor           tavor and tavor-more; need libc and, at run time, a libkel
#   tools      tavor-tools     tavor-run, kel-campaign, kel-campaign-spread, kel-sequence,
#                              libkeltrace.so
#   reference  libkel-reference  the reference library, in a folder that no loader searches
#   dev        tavor-dev       the interface's headers, the list of cases, the ctest module

include(CMakePackageConfigHelpers)
include(TavorAddTests)

set(packaging "${PROJECT_SOURCE_DIR}/packaging")
set(prepared "${PROJECT_BINARY_DIR}/packaging")
set(data "${CMAKE_INSTALL_DATADIR}/tavor")

# Manual pages: the pages of docs/ about commands. A machine without lowdown builds all the rest.
set(manual_sources
    docs/tavor.md
    docs/tavor-more.md
    docs/tavor-reference.md
    docs/tavor-run.md
    docs/kel-campaign.md
    docs/kel-campaign-spread.md
    docs/kel-sequence.md
    docs/kel-explore.md
    tools/keltrace/README.md)
find_program(LOWDOWN lowdown)
find_program(GZIP gzip)
set(manual_pages "")
if(LOWDOWN AND GZIP)
  foreach(source IN LISTS manual_sources)
    # The first line is "# name(section)".
    file(STRINGS "${PROJECT_SOURCE_DIR}/${source}" title LIMIT_COUNT 1)
    string(REGEX REPLACE "^# (.*)\\((.)\\)$" "\\1.\\2" name "${title}")
    set(page "${prepared}/man/${name}.gz")
    add_custom_command(
      OUTPUT "${page}"
      COMMAND sh "${packaging}/make_manual_page.sh" "${LOWDOWN}" "${GZIP}"
              "${PROJECT_SOURCE_DIR}/${source}" "${PROJECT_VERSION}" "${page}"
      DEPENDS "${PROJECT_SOURCE_DIR}/${source}" "${packaging}/make_manual_page.sh"
      VERBATIM)
    list(APPEND manual_pages "${page}")
  endforeach()
else()
  message(STATUS "Manual pages are not built: lowdown or gzip is missing")
endif()
add_custom_target(manual ALL DEPENDS ${manual_pages})
set_property(TARGET manual PROPERTY TAVOR_MANUAL_PAGES ${manual_pages})

# A page of all cases, made from the suites' sources; and the other pages as they are.
find_program(AWK awk REQUIRED)
file(GLOB catalogued CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/fixtures/*.h"
     "${PROJECT_SOURCE_DIR}/suites/*.h" "${PROJECT_SOURCE_DIR}/suites/*.cpp")
set(catalogue "${prepared}/cases.md")
set(catalogue_parts "${packaging}/make_catalogue.awk" "${PROJECT_SOURCE_DIR}/runner/test_list.def"
    "${PROJECT_SOURCE_DIR}/kelapi/operations.def" ${catalogued})
add_custom_command(
  OUTPUT "${catalogue}"
  COMMAND "${AWK}" -v total=0 -f ${catalogue_parts} > "${catalogue}"
  DEPENDS ${catalogue_parts}
  VERBATIM)
add_custom_target(catalogue ALL DEPENDS "${catalogue}")
install(FILES "${catalogue}" DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/tavor" COMPONENT tools)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs/" DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/tavor"
        COMPONENT tools)

# install_man(<component> <page>...)
function(install_man component)
  foreach(page IN LISTS ARGN)
    string(REGEX REPLACE ".*\\." "" section "${page}")
    set(page "${prepared}/man/${page}.gz")
    if(page IN_LIST manual_pages)
      install(FILES "${page}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}"
              COMPONENT ${component})
    endif()
  endforeach()
endfunction()

# Completion: all names, so that tavor need not be run to know them.
function(read_names list prefix)
  set(TAVOR_TEST_LIST "${PROJECT_SOURCE_DIR}/${list}")
  tavor_read_cases(cases)
  set(suites ${cases})
  list(TRANSFORM suites REPLACE " .*" "")
  list(REMOVE_DUPLICATES suites)
  list(TRANSFORM cases REPLACE ".* " "")
  list(JOIN suites " " suites)
  list(JOIN cases " " cases)
  set(${prefix}_SUITES "${suites}" PARENT_SCOPE)
  set(${prefix}_CASES "${cases}" PARENT_SCOPE)
endfunction()
read_names(runner/test_list.def TAVOR)
read_names(more/test_list.def TAVOR_MORE)
file(READ "${packaging}/completions/options.awk" TAVOR_OPTIONS_AWK)
configure_file("${packaging}/completions/tavor.bash.in" "${prepared}/completions/tavor" @ONLY)
configure_file("${packaging}/completions/tools.bash.in" "${prepared}/completions/tavor-run" @ONLY)
foreach(name IN ITEMS _tavor _tavor-settings _tavor-tools)
  configure_file("${packaging}/completions/${name}.in" "${prepared}/completions/${name}" @ONLY)
endforeach()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
                                       "${packaging}/completions/options.awk")
set(bash_completions "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
# Debian's zsh looks for what packages bring elsewhere than others do.
set(zsh_completions "${CMAKE_INSTALL_DATADIR}/zsh/site-functions")
if(EXISTS /etc/debian_version AND CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(zsh_completions "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions")
endif()

# tavor
install_man(tavor tavor.1 tavor-more.1)
install(FILES "${prepared}/completions/tavor" DESTINATION "${bash_completions}" COMPONENT tavor)
install(FILES "${prepared}/completions/tavor" DESTINATION "${bash_completions}" RENAME tavor-more
        COMPONENT tavor)
install(FILES "${prepared}/completions/_tavor" DESTINATION "${zsh_completions}" COMPONENT tavor)

# tools
install_man(tools keltrace.7)
if(TARGET kel-campaign)
  install(TARGETS kel-campaign RUNTIME COMPONENT tools)
  install(PROGRAMS "${PROJECT_SOURCE_DIR}/tools/campaign/kel-campaign-spread"
          DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/tests/campaign/pairs" DESTINATION "${data}"
          COMPONENT tools FILES_MATCHING PATTERN "*.txt")
  install(FILES "${PROJECT_SOURCE_DIR}/tests/campaign/explained.txt" DESTINATION "${data}"
          COMPONENT tools)
  install_man(tools kel-campaign.1 kel-campaign-spread.1)
endif()
if(TARGET kel-sequence)
  install_man(tools kel-sequence.1)
endif()
if(TARGET kel-explore)
  install_man(tools kel-explore.1)
endif()
if(TARGET tavor-run)
  install_man(tools tavor-run.1)
endif()
# One file for all of them; bash looks for one under the name of the program.
foreach(tool IN ITEMS tavor-run kel-campaign kel-campaign-spread kel-explore kel-sequence)
  install(FILES "${prepared}/completions/tavor-run" DESTINATION "${bash_completions}"
          RENAME ${tool} COMPONENT tools)
endforeach()
install(FILES "${prepared}/completions/_tavor-tools" "${prepared}/completions/_tavor-settings"
        DESTINATION "${zsh_completions}" COMPONENT tools)

# reference
if(NOT KEL_LIBRARY)
  file(RELATIVE_PATH TAVOR_REFERENCE_FOLDER "${CMAKE_INSTALL_FULL_BINDIR}"
       "${CMAKE_INSTALL_FULL_LIBDIR}/tavor")
  configure_file("${packaging}/tavor-reference.in" "${prepared}/tavor-reference" @ONLY)
  install(PROGRAMS "${prepared}/tavor-reference" DESTINATION "${CMAKE_INSTALL_BINDIR}"
          COMPONENT reference)
  install(FILES "${prepared}/completions/tavor" DESTINATION "${bash_completions}"
          RENAME tavor-reference COMPONENT reference)
  install_man(reference tavor-reference.1)
endif()

# dev: the same on all machines
install(DIRECTORY "${PROJECT_SOURCE_DIR}/kelapi" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
        COMPONENT dev FILES_MATCHING PATTERN "*.h" PATTERN "*.def")
install(FILES "${PROJECT_SOURCE_DIR}/runner/test_list.def" DESTINATION "${data}" COMPONENT dev)
# The tree may be moved: the file leads to the prefix.
file(RELATIVE_PATH TAVOR_PC_PREFIX "${CMAKE_INSTALL_FULL_DATADIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
configure_file("${packaging}/kelapi.pc.in" "${prepared}/kelapi.pc" @ONLY)
install(FILES "${prepared}/kelapi.pc" DESTINATION "${CMAKE_INSTALL_DATADIR}/pkgconfig"
        COMPONENT dev)

install(TARGETS kelapi EXPORT tavor COMPONENT dev)
install(EXPORT tavor NAMESPACE tavor:: FILE tavor-targets.cmake DESTINATION "${data}/cmake"
        COMPONENT dev)
configure_package_config_file("${packaging}/tavor-config.cmake.in" "${prepared}/tavor-config.cmake"
                              INSTALL_DESTINATION "${data}/cmake" NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${prepared}/tavor-config-version.cmake"
                                 COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
install(FILES "${prepared}/tavor-config.cmake" "${prepared}/tavor-config-version.cmake"
              "${PROJECT_SOURCE_DIR}/cmake/TavorAddTests.cmake"
        DESTINATION "${data}/cmake" COMPONENT dev)

# Packages. The paths are fixed when configuring: see the preset "package".
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tavor)
set(CPACK_PACKAGE_VENDOR tavor)
set(CPACK_PACKAGE_CONTACT "tavor developers <tavor@localhost>"
    CACHE STRING "Maintainer named in packages")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_STRIP_FILES ON)
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_COMPONENTS_ALL tavor tools reference dev)
if(KEL_LIBRARY)
  list(REMOVE_ITEM CPACK_COMPONENTS_ALL reference)
endif()
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
                                                GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# libkel is nobody's package: it comes with the platform, or from a private folder.
find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
if(DPKG_SHLIBDEPS AND NOT CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
  if(KEL_LIBRARY)
    get_filename_component(folder "${KEL_LIBRARY}" DIRECTORY)
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${folder}")
  endif()
else()
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libstdc++6")
  set(CPACK_DEBIAN_TAVOR_PACKAGE_DEPENDS libc6)
endif()

# package(<component> <name> <section> <summary> <text> [<relation> <packages>]...)
macro(package component name section summary text)
  string(TOUPPER "${component}" upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME "${name}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION "${section}")
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${text}")
  install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" RENAME copyright
          DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${name}" COMPONENT ${component})
  set(relations ${ARGN})
  while(relations)
    list(POP_FRONT relations relation packages)
    set(CPACK_DEBIAN_${upper}_PACKAGE_${relation} "${packages}")
  endwhile()
endmacro()

package(tavor tavor devel "test program for the packet-buffer library libkel"
        "tavor calls libkel with good and bad arguments and says case by case\n\
whether results, data and errors are what the contract requires.\n\
It takes the libkel.so that the loader finds."
        SUGGESTS "libkel-reference, tavor-tools")
package(tools tavor-tools devel "companions of the test program tavor"
        "tavor-run selects, repeats, shards and reports. libkeltrace.so shows the\n\
calls between tavor and libkel and makes them fail; kel-campaign uses it\n\
to show that every check of tavor notices a library that is wrong."
        RECOMMENDS tavor SUGGESTS "libkel-reference, parallel, openssh-client, rsync")
package(reference libkel-reference libs "reference library for the test program tavor"
        "A libkel.so that meets the contract which tavor tests, for machines\n\
without one. It lies where no loader searches; tavor-reference runs tavor\n\
with it."
        RECOMMENDS tavor)
package(dev tavor-dev libdevel "interface headers of libkel and tavor's list of cases"
        "The C declarations of libkel that tavor is written against, the list of\n\
cases, and a CMake module that makes each case a ctest test."
        SUGGESTS "tavor, libkel-reference" ARCHITECTURE all)

include(CPack)
