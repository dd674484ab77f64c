# Run by CPack after the packages are made (CPACK_POST_BUILD_SCRIPTS). CPack (3.25) gives every
# package with a library below /usr/lib postinst and postrm scripts that call ldconfig; Debian
# asks for the "activate-noawait ldconfig" trigger instead, which the library package already
# carries (see cmake/Packaging.cmake). So the two scripts are taken out of the library package
# and it is packed again, its files untouched.
foreach(package ${CPACK_PACKAGE_FILES})
  get_filename_component(name ${package} NAME)
  if(NOT name MATCHES "^libzqcore[0-9]+_")
    continue()
  endif()
  set(tree ${CPACK_TOPLEVEL_DIRECTORY}/repack)
  file(REMOVE_RECURSE ${tree})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
  execute_process(COMMAND dpkg-deb --root-owner-group -Zxz --build ${tree} ${package}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${tree})
endforeach()
