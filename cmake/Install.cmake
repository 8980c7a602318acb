include(CMakePackageConfigHelpers)
# Components: runtime is what programs need that are there, dev what it takes to compile them; tools, testing, python and
# doc are of use without each other.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME dev)

# linx_install_pc(NAME DESCRIPTION text FIELDS line... [COMPONENT name])
# Installs a pkg-config file with those fields.
function(linx_install_pc name)
  cmake_parse_arguments(arg "" "DESCRIPTION;COMPONENT" "FIELDS" ${ARGN})
  if(NOT arg_COMPONENT)
    set(arg_COMPONENT ${CMAKE_INSTALL_DEFAULT_COMPONENT_NAME})
  endif()
  list(JOIN arg_FIELDS "\n" fields)

  # Paths relative to the file itself, so that the package may be moved as a whole.
  cmake_path(APPEND CMAKE_INSTALL_LIBDIR pkgconfig OUTPUT_VARIABLE pcdir)
  set(prefix ${CMAKE_INSTALL_PREFIX})
  if(NOT IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
    file(RELATIVE_PATH up /prefix/${pcdir} /prefix)
    string(REGEX REPLACE "/$" "" up ${up})
    set(prefix "\${pcfiledir}/${up}")
  endif()
  foreach(dir IN ITEMS LIB INCLUDE)
    set(${dir} "\${prefix}")
    cmake_path(APPEND ${dir} ${CMAKE_INSTALL_${dir}DIR})
  endforeach()
  configure_file(${PROJECT_SOURCE_DIR}/cmake/pkg-config.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${pcdir} COMPONENT ${arg_COMPONENT})
endfunction()

# linx_install(TARGET NAME pkg-config-name DESCRIPTION text [STATIC_NEEDS line...])
# Installs a library as part of the package, with a pkg-config file. A shared one shows only what cmake/<TARGET>.map
# lists; STATIC_NEEDS are the pkg-config fields of what a static one wants besides.
function(linx_install target)
  cmake_parse_arguments(arg "" "NAME;DESCRIPTION" "STATIC_NEEDS" ${ARGN})
  if(LINXIPC_LIBRARY_TYPE STREQUAL "SHARED")
    set(map ${PROJECT_SOURCE_DIR}/cmake/${target}.map)
    target_link_options(${target} PRIVATE -Wl,--version-script=${map})
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
    set(arg_STATIC_NEEDS)
  endif()
  install(TARGETS ${target} EXPORT linxipc LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev)
  linx_install_pc(
    ${arg_NAME}
    DESCRIPTION ${arg_DESCRIPTION}
    FIELDS "Cflags: -I\${includedir}/linxipc" "Libs: -L\${libdir} -l${target}" ${arg_STATIC_NEEDS})
endfunction()

# Those who link a static library of C++ with a C compiler have to be told of C++'s own.
set(runtime ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
list(FILTER runtime INCLUDE REGEX "^(stdc|c)[+][+]$")
list(TRANSFORM runtime PREPEND "-l")
list(REMOVE_DUPLICATES runtime)

linx_install(LinxIpc NAME linxipc DESCRIPTION "${PROJECT_DESCRIPTION}" STATIC_NEEDS "Libs.private: ${runtime}")
if(TARGET linxhost)
  set(needs "Libs.private: ${runtime} -pthread")
  if(LINXIPC_SYSTEMD)
    list(APPEND needs "Requires.private: libsystemd")
  endif()
  linx_install(linxhost NAME linxhost DESCRIPTION "The LINX platform on stock Linux" STATIC_NEEDS ${needs})
  linx_install_pc(linxipc-host DESCRIPTION "${PROJECT_DESCRIPTION}, on stock Linux" FIELDS "Requires: linxipc linxhost")
endif()

set_target_properties(linxplatform PROPERTIES EXPORT_NAME platform)
install(TARGETS linxplatform linxipc EXPORT linxipc)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(DIRECTORY platform DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/linxipc FILES_MATCHING PATTERN "*.h"
        PATTERN linx_link.h EXCLUDE)
install(FILES ipc/linxIpc.h ipc/LogLevel.h ipc/ReservedSignal.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/linxipc/ipc)
install(FILES directory/LinxServerNameList.h directory/e_Process.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/linxipc/directory)
install(FILES log/LogLevel.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/linxipc/log)

# The platform for tests is of use to those alone who have some: what tells CMake of it goes with it.
install(TARGETS linxtesting EXPORT linxipc-testing COMPONENT testing)
install(FILES testing/RecordingPlatform.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/linxipc/testing COMPONENT testing)
linx_install_pc(linxipc-testing DESCRIPTION "${PROJECT_DESCRIPTION}, on a platform for tests of a single process"
                FIELDS "Requires: linxipc" "Libs: -L\${libdir} -llinxtesting" COMPONENT testing)

foreach(section IN ITEMS 3 7)
  install(DIRECTORY man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT doc
          FILES_MATCHING PATTERN "*.${section}")
endforeach()

if(TARGET linx)
  install(TARGETS linx COMPONENT tools)
  install(FILES man/linx.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  # Where the system's Wireshark looks, if this is the system's prefix.
  install(FILES tools/wireshark/linx.lua DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/plugins COMPONENT tools)
  install(PROGRAMS tools/wireshark/linx-extcap DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/extcap COMPONENT tools)
  set(LINXIPC_ZSH_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING "Where zsh's completions are installed")
  install(FILES tools/completion/linx.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME linx
          COMPONENT tools)
  install(FILES tools/completion/linx.zsh DESTINATION ${LINXIPC_ZSH_DIR} RENAME _linx COMPONENT tools)
  install(FILES tools/completion/linx.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tools)
endif()

if(TARGET linx-link)
  set(LINXIPC_UNIT_DIR lib/systemd/system CACHE STRING "Where systemd's units are installed")
  configure_file(link/systemd/linx-link.service.in ${PROJECT_BINARY_DIR}/link/linx-link.service @ONLY)
  install(TARGETS linx-link RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT link)
  install(FILES ${PROJECT_BINARY_DIR}/link/linx-link.service DESTINATION ${LINXIPC_UNIT_DIR} COMPONENT link)
  install(FILES link/systemd/linx-link.sysusers DESTINATION lib/sysusers.d RENAME linx-link.conf COMPONENT link)
  install(FILES man/linx-link.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT link)
  install(FILES man/linx-link.conf.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT link)
endif()

# Beside the library that they load, with what tells pytest of its plugin.
if(TARGET linxhost AND LINXIPC_LIBRARY_TYPE STREQUAL "SHARED")
  set(LINXIPC_PYTHON_DIR lib/python3/dist-packages CACHE STRING "Where the Python modules are installed")
  install(FILES python/linx.py DESTINATION ${LINXIPC_PYTHON_DIR} COMPONENT python)
  install(DIRECTORY python/pytest_linx DESTINATION ${LINXIPC_PYTHON_DIR} COMPONENT python FILES_MATCHING PATTERN "*.py"
          PATTERN "__pycache__" EXCLUDE)
  configure_file(cmake/python-metadata.in ${PROJECT_BINARY_DIR}/python/METADATA @ONLY)
  file(WRITE ${PROJECT_BINARY_DIR}/python/entry_points.txt "[pytest11]\npytest_linx = pytest_linx\n")
  install(FILES ${PROJECT_BINARY_DIR}/python/METADATA ${PROJECT_BINARY_DIR}/python/entry_points.txt
          DESTINATION ${LINXIPC_PYTHON_DIR}/linxipc-${PROJECT_VERSION}.dist-info COMPONENT python)
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/linxipc)
install(EXPORT linxipc NAMESPACE linxipc:: DESTINATION ${package_dir} FILE linxipcTargets.cmake)
install(EXPORT linxipc-testing NAMESPACE linxipc:: DESTINATION ${package_dir} FILE linxipcTestingTargets.cmake
        COMPONENT testing)
configure_file(cmake/linxipcConfig.cmake.in ${PROJECT_BINARY_DIR}/linxipcConfig.cmake @ONLY)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/linxipcConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/linxipcConfig.cmake ${PROJECT_BINARY_DIR}/linxipcConfigVersion.cmake
        DESTINATION ${package_dir})

if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -DBUILD=${PROJECT_BINARY_DIR}
                                      -P ${PROJECT_SOURCE_DIR}/cmake/Uninstall.cmake USES_TERMINAL)
endif()
