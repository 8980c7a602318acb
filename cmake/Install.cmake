include(CMakePackageConfigHelpers)

# linx_install(TARGET NAME pkg-config-name DESCRIPTION text)
# Installs a library as part of the package, with a pkg-config file, and shows only what cmake/<TARGET>.map lists.
function(linx_install target)
  cmake_parse_arguments(arg "" "NAME;DESCRIPTION" "" ${ARGN})
  set(map ${PROJECT_SOURCE_DIR}/cmake/${target}.map)
  target_link_options(${target} PRIVATE -Wl,--version-script=${map})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
  install(TARGETS ${target} EXPORT linxipc LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

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
  configure_file(${PROJECT_SOURCE_DIR}/cmake/library.pc.in ${PROJECT_BINARY_DIR}/${arg_NAME}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${arg_NAME}.pc DESTINATION ${pcdir})
endfunction()

linx_install(LinxIpc NAME linxipc DESCRIPTION "${PROJECT_DESCRIPTION}")
if(TARGET linxhost)
  linx_install(linxhost NAME linxhost DESCRIPTION "The LINX platform on stock Linux")
endif()

set_target_properties(linxplatform PROPERTIES EXPORT_NAME platform)
install(TARGETS linxplatform EXPORT linxipc)
install(DIRECTORY platform DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/linxipc FILES_MATCHING PATTERN "*.h")
install(FILES ipc/linxIpc.h ipc/LogLevel.h ipc/ReservedSignal.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/linxipc/ipc)
install(FILES directory/LinxServerNameList.h directory/e_Process.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/linxipc/directory)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/linxipc)
install(EXPORT linxipc NAMESPACE linxipc:: DESTINATION ${package_dir} FILE linxipcConfig.cmake)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/linxipcConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/linxipcConfigVersion.cmake DESTINATION ${package_dir})
