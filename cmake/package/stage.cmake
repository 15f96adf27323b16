# SPDX-License-Identifier: Apache-2.0
# Run by cpack between installing and packing. A Debian package gets what Debian's policy asks for
# beside the installed files: documentation in a folder of the package's name, pages and change logs
# packed. The tarball is taken as it is.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()

set(version ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC) # that of SOURCE_DATE_EPOCH

foreach(component IN ITEMS command library development)
  string(TOUPPER ${component} name)
  set(package ${CPACK_DEBIAN_${name}_PACKAGE_NAME})
  set(share ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share)
  set(doc ${share}/doc/${package})

  if(EXISTS ${share}/doc/vxcore)
    file(RENAME ${share}/doc/vxcore ${doc})
  endif()
  file(REMOVE ${doc}/CHANGELOG.md)
  configure_file(${CPACK_VX_SOURCE_DIR}/cmake/package/copyright ${doc}/copyright COPYONLY)
  configure_file(${CPACK_VX_SOURCE_DIR}/CHANGELOG.md ${doc}/changelog COPYONLY)
  file(WRITE ${doc}/changelog.Debian "vxcore (${version}) unstable; urgency=medium\n\n"
    "  * Release ${CPACK_PACKAGE_VERSION}; changelog.gz says what is new.\n\n"
    " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")

  file(WRITE ${share}/lintian/overrides/${package}
    "# Not made for upload to Debian: there is no bug that its first release could close.\n"
    "${package}: initial-upload-closes-no-bugs\n")

  file(GLOB_RECURSE binaries ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/bin/*
    ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/lib/*.so.*.*
    ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/lib/*.a)
  foreach(binary IN LISTS binaries)
    execute_process(COMMAND strip --strip-debug --enable-deterministic-archives
      --remove-section=.comment ${binary} COMMAND_ERROR_IS_FATAL ANY)
  endforeach()

  file(GLOB pages ${share}/man/man?/*)
  execute_process(COMMAND gzip -9n ${pages} ${doc}/changelog ${doc}/changelog.Debian
    COMMAND_ERROR_IS_FATAL ANY)
endforeach()
