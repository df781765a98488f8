# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Installs a library target with its public headers, its CMake package (find_package(Kez)) and its
# pkg-config module (kez). The installed tree may be moved: no file in it holds an absolute path.
function(kez_install target)
  install(TARGETS ${target} EXPORT KezTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  set_target_properties(${target} PROPERTIES EXPORT_NAME Kez)

  set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Kez)
  install(EXPORT KezTargets NAMESPACE Kez:: DESTINATION ${package_dir})
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/KezConfig.cmake.in
    ${PROJECT_BINARY_DIR}/KezConfig.cmake INSTALL_DESTINATION ${package_dir})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/KezConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/KezConfig.cmake ${PROJECT_BINARY_DIR}/KezConfigVersion.cmake
    DESTINATION ${package_dir})

  set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  file(RELATIVE_PATH KEZ_PC_PREFIX /${pkgconfig_dir} /)
  string(REGEX REPLACE "/$" "" KEZ_PC_PREFIX "${KEZ_PC_PREFIX}")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/kez.pc.in ${PROJECT_BINARY_DIR}/kez.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/kez.pc DESTINATION ${pkgconfig_dir})
endfunction()
