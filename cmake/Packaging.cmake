# Debian packages from the installed components (`make deb`, which configures a build folder
# with prefix /usr and runs cpack there):
#   libzqcore0      runtime   the shared library
#   libzqcore-dev   dev       headers, the libZQCore.so link, zqcore.pc, the CMake package
#   zqpod           tool      the command-line tool and its manual page
#   python3-zqcore  python    the Python module
#   zqpod-gui       gui       the desktop application (built in gui/, see cmake/Gui.cmake)
# Dependencies on other Debian packages come from dpkg-shlibdeps; those between these four are
# stated here. The runtime package carries a shlibs file, so packages built against it depend on
# libzqcore0 (>= the version they were built with). The runtime package's name follows the
# soname, so an incompatible library is a new package beside the old one.

set(ZQ_DEBIAN_REVISION 1)
set(ZQ_DEBIAN_VERSION ${PROJECT_VERSION}-${ZQ_DEBIAN_REVISION})
set(ZQ_MAINTAINER "ZQCore Developers <zqcore@packages.debian.invalid>" CACHE STRING
  "The Maintainer field of the Debian packages")

set(ZQ_DEB_PACKAGES runtime libzqcore${ZQ_SOVERSION} dev libzqcore-dev tool zqpod python python3-zqcore)
if(TARGET zqpod-gui)
  list(APPEND ZQ_DEB_PACKAGES gui zqpod-gui)
endif()

# Every Debian package carries its copyright file and a compressed changelog in
# /usr/share/doc/PACKAGE.
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/debian/changelog.Debian.gz
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/debian
  COMMAND gzip -9nc ${CMAKE_SOURCE_DIR}/packaging/changelog > ${CMAKE_BINARY_DIR}/debian/changelog.Debian.gz
  DEPENDS ${CMAKE_SOURCE_DIR}/packaging/changelog VERBATIM)
add_custom_target(zqcore-debian-docs ALL DEPENDS ${CMAKE_BINARY_DIR}/debian/changelog.Debian.gz)
set(entries ${ZQ_DEB_PACKAGES})
while(entries)
  list(POP_FRONT entries component package)
  install(FILES ${CMAKE_SOURCE_DIR}/packaging/copyright ${CMAKE_BINARY_DIR}/debian/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
  string(TOUPPER ${component} COMPONENT)
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${COMPONENT}_FILE_NAME DEB-DEFAULT)
endwhile()

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tool)
if(TARGET zqcore_python)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()
if(TARGET zqpod-gui)
  list(APPEND CPACK_COMPONENTS_ALL gui)
endif()
set(CPACK_PACKAGE_NAME zqcore)
set(CPACK_PACKAGE_VENDOR "ZQCore")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${ZQ_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${ZQ_DEBIAN_REVISION})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${ZQ_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# iPhones and iPod touches are reached through the usbmuxd service.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS usbmuxd)
# The library package's shlibs file, and the ldconfig trigger that replaces maintainer scripts.
# CPack writes postinst/postrm scripts calling ldconfig for any library below /usr/lib;
# packaging/DebPostBuild.cmake takes them out again.
file(WRITE ${CMAKE_BINARY_DIR}/debian/shlibs
  "libZQCore ${ZQ_SOVERSION} libzqcore${ZQ_SOVERSION} (>= ${ZQ_DEBIAN_VERSION})\n")
file(WRITE ${CMAKE_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/debian/shlibs ${CMAKE_BINARY_DIR}/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/packaging/DebPostBuild.cmake)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "read the music library of iPods and iPhones - shared library
ZQCore is a framework that reads the music library of iPods (disk mode) and of
iPhones and iPod touches (through usbmuxd): tracks with their metadata,
playlists, smart playlists, podcasts, covers, and the track files themselves,
so that music can be copied back to a computer. It never writes a library
database.
.
This package contains the shared library.")

set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libzqcore${ZQ_SOVERSION} (= ${ZQ_DEBIAN_VERSION})")
set(CPACK_COMPONENT_DEV_DESCRIPTION "read the music library of iPods and iPhones - development files
ZQCore is a framework that reads the music library of iPods and iPhones.
.
This package contains the C++ headers, the pkg-config file (zqcore) and the
CMake package (find_package(ZQCore), target ZQCore::ZQCore).")

set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "libzqcore${ZQ_SOVERSION} (>= ${ZQ_DEBIAN_VERSION})")
set(CPACK_COMPONENT_TOOL_DESCRIPTION "copy music off iPods and iPhones
zqpod lists the iPods and iPhones connected, prints their music library (as
text or JSON), copies their music with playlists and covers into a folder, and
writes the covers as PNG files. It only reads the devices.")

if(TARGET zqcore_python)
  # The extension is built for one Python version (its ABI tag is in the file name).
  math(EXPR ZQ_PYTHON_NEXT_MINOR "${Python_VERSION_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "libzqcore${ZQ_SOVERSION} (= ${ZQ_DEBIAN_VERSION}), python3 (>= ${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}), python3 (<< ${Python_VERSION_MAJOR}.${ZQ_PYTHON_NEXT_MINOR})")
  set(CPACK_COMPONENT_PYTHON_DESCRIPTION "read the music library of iPods and iPhones - Python 3 module
The module zqcore lists the iPods and iPhones connected, loads their music
library (tracks and playlists with their fields as attributes), reads or copies
track files and covers, and follows devices as they come and go.")
endif()

if(TARGET zqpod-gui)
  set(CPACK_DEBIAN_GUI_PACKAGE_SECTION sound)
  # Qt finds its X11 (and offscreen) platform plugins in qt6-qpa-plugins, which its libraries
  # do not depend on; without one the program cannot open a window. Wayland's is qt6-wayland.
  set(CPACK_DEBIAN_GUI_PACKAGE_DEPENDS "libzqcore${ZQ_SOVERSION} (>= ${ZQ_DEBIAN_VERSION}), qt6-qpa-plugins")
  # Phones are reached through usbmuxd, as for the library itself.
  set(CPACK_DEBIAN_GUI_PACKAGE_RECOMMENDS "usbmuxd, qt6-wayland")
  set(CPACK_COMPONENT_GUI_DESCRIPTION "see the music on iPods and iPhones
ZQPod is a desktop application that shows the music library of the iPods and
iPhones connected, as they are plugged in: tracks with every field, sortable
and filtered as you type, albums with their covers, playlists, smart
playlists and podcasts. Copied device folders can be opened too. It only
reads the devices.")
endif()

include(CPack)
