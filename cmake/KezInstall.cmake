# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Installs a library target with its public headers, as component `name` of the CMake package Kez
# (target Kez::<name>), and with a pkg-config module. TARGETS_FILE is what KezConfig.cmake includes
# for the component. The installed tree may be moved: no file in it holds an absolute path.
#   kez_install(target name TARGETS_FILE file MODULE kez-name DESCRIPTION text REQUIRES modules)
function(kez_install target name)
  cmake_parse_arguments(arg "" "TARGETS_FILE;MODULE;DESCRIPTION;REQUIRES" "" ${ARGN})
  set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Kez)

  install(TARGETS ${target} EXPORT ${target}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${name})
  install(EXPORT ${target} FILE ${arg_TARGETS_FILE} NAMESPACE Kez:: DESTINATION ${package_dir})

  set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  file(RELATIVE_PATH KEZ_PC_PREFIX /${pkgconfig_dir} /)
  string(REGEX REPLACE "/$" "" KEZ_PC_PREFIX "${KEZ_PC_PREFIX}")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/kez.pc.in
    ${PROJECT_BINARY_DIR}/${arg_MODULE}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${arg_MODULE}.pc DESTINATION ${pkgconfig_dir})
endfunction()

# Installs the package's own files: find_package(Kez).
function(kez_install_package)
  set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Kez)
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/KezConfig.cmake.in
    ${PROJECT_BINARY_DIR}/KezConfig.cmake INSTALL_DESTINATION ${package_dir})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/KezConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/KezConfig.cmake ${PROJECT_BINARY_DIR}/KezConfigVersion.cmake
    DESTINATION ${package_dir})
endfunction()
