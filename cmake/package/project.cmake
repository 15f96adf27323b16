# SPDX-License-Identifier: Apache-2.0
# Read by cpack before it starts. Every time inside a package is that of the last commit, or outside
# a repository that of the change log, unless the caller has set SOURCE_DATE_EPOCH.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  file(TIMESTAMP ${CPACK_VX_SOURCE_DIR}/CHANGELOG.md epoch %s UTC)
  if(EXISTS ${CPACK_VX_SOURCE_DIR}/.git)
    execute_process(COMMAND git log -1 --format=%ct WORKING_DIRECTORY ${CPACK_VX_SOURCE_DIR}
      OUTPUT_VARIABLE committed OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    if(committed)
      set(epoch ${committed})
    endif()
  endif()
  set(ENV{SOURCE_DATE_EPOCH} ${epoch})
endif()

if(CPACK_GENERATOR STREQUAL "DEB")
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
else()
  set(CPACK_PACKAGING_INSTALL_PREFIX /)
endif()
