# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT

# What the shared libraries have in common. `library_macro` is defined while the library itself is
# compiled, so that its export macro exports.
#   kez_library(target library_macro)
function(kez_library target library_macro)
  set(exports ${PROJECT_SOURCE_DIR}/src/exports.map)
  set_target_properties(${target} PROPERTIES
    AUTOMOC ON
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    VERIFY_INTERFACE_HEADER_SETS ON
  )
  target_compile_features(${target} PUBLIC cxx_std_17)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_compile_definitions(${target} PRIVATE
    ${library_macro} QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII)
  # The library's calls of its own functions go there directly, not through the linkage table.
  target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  # Never unloaded: Qt keeps the pre-routine, the resources and the meta-types that it was given.
  target_link_options(${target} PRIVATE -Wl,--no-undefined -Wl,-z,relro,-z,now -Wl,-z,nodelete
    -Wl,--version-script=${exports})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${exports})
endfunction()
