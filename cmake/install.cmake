# SPDX-License-Identifier: Apache-2.0
# What is installed where. Three components: command, library (the shared one), development.
include(CMakePackageConfigHelpers)

set(VX_ZSH_COMPLETIONS_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions
  CACHE STRING "Where zsh looks for completions, below the prefix")

# A folder spelt as an absolute path, but below the prefix, moves with the prefix like the others.
foreach(dir IN ITEMS LIBDIR INCLUDEDIR)
  cmake_path(IS_PREFIX CMAKE_INSTALL_PREFIX "${CMAKE_INSTALL_${dir}}" NORMALIZE below)
  if(below)
    file(RELATIVE_PATH CMAKE_INSTALL_${dir} "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
set(vx_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vxcore)

# The command.
if(TARGET vxu_show_scenarios)
  install(TARGETS vxu_show_scenarios DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT command)
  file(GLOB vx_pages CONFIGURE_DEPENDS man/*.1)
  install(FILES ${vx_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT command)
  install(FILES completions/vxu_show_scenarios.bash RENAME vxu_show_scenarios
    COMPONENT command
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES completions/_vxu_show_scenarios COMPONENT command
    DESTINATION ${VX_ZSH_COMPLETIONS_DIR})
  install(FILES completions/vxu_show_scenarios.fish COMPONENT command
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
  install(FILES README.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT command)
  file(GLOB vx_examples CONFIGURE_DEPENDS examples/*.awk examples/*.sh)
  install(FILES ${vx_examples} DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT command)
  install(PROGRAMS examples/make-sample-workdir COMPONENT command
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
  install(DIRECTORY examples/helpers USE_SOURCE_PERMISSIONS COMPONENT command
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
endif()

# The libraries. NAMELINK stands for libvxcore.so, which programs are linked against.
install(TARGETS vxcore EXPORT vxcoreTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT vxcoreTargets NAMESPACE vxcore:: DESTINATION ${vx_cmake_dir} COMPONENT development)
if(TARGET vxcore_shared)
  install(TARGETS vxcore_shared EXPORT vxcoreSharedTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
    NAMELINK_COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(EXPORT vxcoreSharedTargets NAMESPACE vxcore:: DESTINATION ${vx_cmake_dir}
    COMPONENT development)
endif()

# What programs on the library need.
install(DIRECTORY base/include/libvxcore DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development FILES_MATCHING PATTERN "*.h")
file(GLOB vx_pages CONFIGURE_DEPENDS man/*.3)
install(FILES ${vx_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
install(FILES CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
file(GLOB vx_examples CONFIGURE_DEPENDS examples/*.c examples/*.py examples/README.md)
install(FILES ${vx_examples} DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development)

set(vx_config ${CMAKE_CURRENT_BINARY_DIR}/config)
configure_package_config_file(cmake/vxcoreConfig.cmake.in ${vx_config}/vxcoreConfig.cmake
  INSTALL_DESTINATION ${vx_cmake_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${vx_config}/vxcoreConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${vx_config}/vxcoreConfig.cmake ${vx_config}/vxcoreConfigVersion.cmake
  DESTINATION ${vx_cmake_dir} COMPONENT development)

# In vxcore.pc the prefix is found from the file's own place, so that a moved tree still works; with
# a library folder outside the prefix that can't be.
set(vx_pc_prefix ${CMAKE_INSTALL_PREFIX})
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  file(RELATIVE_PATH vx_pc_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" /)
  string(REGEX REPLACE "/$" "" vx_pc_prefix "\${pcfiledir}/${vx_pc_prefix}")
endif()
set(vx_pc_base "\${prefix}")
cmake_path(APPEND vx_pc_base "${CMAKE_INSTALL_LIBDIR}" OUTPUT_VARIABLE vx_pc_libdir)
cmake_path(APPEND vx_pc_base "${CMAKE_INSTALL_INCLUDEDIR}" OUTPUT_VARIABLE vx_pc_includedir)
configure_file(cmake/vxcore.pc.in ${vx_config}/vxcore.pc @ONLY)
install(FILES ${vx_config}/vxcore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)
