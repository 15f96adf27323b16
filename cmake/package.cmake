# SPDX-License-Identifier: Apache-2.0
# Three Debian packages, or one tarball that runs from wherever it is unpacked (cpack -G TGZ).
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_CONTACT "vxcore maintainers <maintainers@vxcore.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_GENERATOR DEB CACHE STRING "Generators of packages: DEB, TGZ")
set(CPACK_SYSTEM_NAME linux-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# The same sources give the same bytes: times come from project.cmake, the rest from dpkg-deb and tar.
set(vx_package_dir ${CMAKE_CURRENT_LIST_DIR}/package)
set(CPACK_PROJECT_CONFIG_FILE ${vx_package_dir}/project.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${vx_package_dir}/stage.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${vx_package_dir}/finish.cmake)
set(CPACK_VX_SOURCE_DIR ${PROJECT_SOURCE_DIR})

set(CPACK_COMPONENTS_ALL command library development)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)

set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE vxcore)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_COMMAND_PACKAGE_NAME vxu-show-scenarios)
set(CPACK_DEBIAN_COMMAND_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_COMMAND_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_COMMAND_PACKAGE_SUGGESTS bash-completion)
set(CPACK_DEBIAN_COMMAND_DESCRIPTION "list the scenarios of a load-testing work directory
vxu_show_scenarios prints the test scenarios below a work directory as a
table: workspace and profile, project, sub-project, name, owner, group,
permission, date and type. Options choose them by user, project, workspace,
age, words of the name, tags and type.
.
The package brings the manual page and completions for bash, zsh and fish.")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libvxcore${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "core support library: log, JSON, allocation, ids
A small library for programs in C and C++: a log that several processes
share, a streaming JSON parser with a tree and path expressions, tracked
allocation with a map of what is held, a slot pool, a growable buffer and a
table of names and ids. It needs nothing but the C library.
.
This package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvxcore-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libvxcore${PROJECT_VERSION_MAJOR} (= \
${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}), libc6-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "core support library, development files
A small library for programs in C and C++: a log that several processes
share, a streaming JSON parser with a tree and path expressions, tracked
allocation with a map of what is held, a slot pool, a growable buffer and a
table of names and ids. It needs nothing but the C library.
.
This package holds the headers, the archive, the files by which CMake and
pkg-config find them, the manual pages and examples.")

include(CPack)
