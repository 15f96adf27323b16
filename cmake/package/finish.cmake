# SPDX-License-Identifier: Apache-2.0
# Run by cpack on what it has packed. Packing once more by dpkg-deb or tar puts files in order, gives
# them to root and cuts their times to SOURCE_DATE_EPOCH, so that the result depends on the sources
# alone. On the way a Debian package gets what cpack has no setting for.
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# Every file of a folder gets the one time; dpkg-deb only cuts later ones.
function(set_times folder)
  run(find ${folder} -exec touch -h -d @$ENV{SOURCE_DATE_EPOCH} {} +)
endfunction()

# What the shared library's dependants need to know. A trigger calls ldconfig once for many packages,
# where cpack's scripts do it for each.
function(finish_shared_library control)
  set(library ${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME})
  string(REGEX REPLACE "^libvxcore" "libvxcore " soname ${library})
  file(WRITE ${control}/shlibs "${soname} ${library} (>= ${CPACK_PACKAGE_VERSION})\n")
  file(STRINGS ${CPACK_VX_SOURCE_DIR}/core/base/libvxcore/libvxcore.symbols symbols REGEX "^[^#]")
  list(JOIN symbols "\n" symbols)
  file(WRITE ${control}/symbols "${symbols}\n")
  file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
  file(REMOVE ${control}/postinst ${control}/postrm)
endfunction()

function(finish_debian_package package)
  set(tree ${CPACK_TEMPORARY_DIRECTORY}/finish)
  file(REMOVE_RECURSE ${tree})
  run(dpkg-deb -R ${package} ${tree})
  if(package MATCHES "/libvxcore")
    run(sed -i "/^Section:/a Multi-Arch: same" ${tree}/DEBIAN/control)
  endif()
  if(package MATCHES "/libvxcore[0-9]")
    finish_shared_library(${tree}/DEBIAN)
  endif()
  run(chmod -R u=rwX,go=rX ${tree})
  set_times(${tree})
  run(dpkg-deb --root-owner-group -Zxz -b ${tree} ${package})
  file(REMOVE_RECURSE ${tree})
endfunction()

function(finish_tarball package)
  set_times(${CPACK_TEMPORARY_DIRECTORY})
  get_filename_component(top ${CPACK_TEMPORARY_DIRECTORY} DIRECTORY)
  get_filename_component(name ${CPACK_TEMPORARY_DIRECTORY} NAME)
  execute_process(
    COMMAND tar -C ${top} --sort=name --format=gnu --owner=0 --group=0 --numeric-owner
      --mode=u=rwX,go=rX -cf - ${name}
    COMMAND gzip -9n OUTPUT_FILE ${package} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(package IN LISTS CPACK_PACKAGE_FILES)
  if(CPACK_GENERATOR STREQUAL "DEB")
    finish_debian_package(${package})
  else()
    finish_tarball(${package})
  endif()
endforeach()
