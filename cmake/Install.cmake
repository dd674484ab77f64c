# What `cmake --install` puts where: the shared library, the public headers, zqcore.pc, the CMake
# package (find_package(ZQCore) -> ZQCore::ZQCore), zqpod and its manual page. Components name the
# Debian packages they end up in (see cmake/Packaging.cmake).

# The installed interface: the headers an application includes, and the ones they include in
# turn. Record layouts, the SQLite helpers, the volume monitor, resources and the other internals
# stay in the source tree. tests/packaging builds ZQCore/ZQCore.h (which includes every one of
# these) against an installed copy, so a public header that needs a private one fails there.
set(ZQ_PUBLIC_HEADERS
  ZQCore/ZQCore.h
  ZQCore/foundation/Application.h
  ZQCore/foundation/Data.h
  ZQCore/foundation/Date.h
  ZQCore/foundation/Exception.h
  ZQCore/foundation/Export.h
  ZQCore/foundation/File.h
  ZQCore/foundation/Image.h
  ZQCore/foundation/Log.h
  ZQCore/foundation/NotificationCenter.h
  ZQCore/foundation/Observable.h
  ZQCore/foundation/Range.h
  ZQCore/foundation/Value.h
  ZQCore/files/DeviceFiles.h
  ZQCore/model/PackedStrings.h
  ZQCore/model/Playlist.h
  ZQCore/model/PlaylistFolder.h
  ZQCore/model/Podcasts.h
  ZQCore/model/PurchasedPlaylist.h
  ZQCore/model/SmartPlaylist.h
  ZQCore/model/SmartPlaylistRule.h
  ZQCore/model/TrackLibrary.h
  ZQCore/model/iPodTrack.h
  ZQCore/artwork/AlbumArt.h
  ZQCore/artwork/AlbumArtRep.h
  ZQCore/device/DeviceInformationInquiry.h
  ZQCore/device/DeviceModel.h
  ZQCore/device/ZQCore.h
  ZQCore/device/ZQCoreiPod.h
  ZQCore/device/ZQCoreiPodRef.h
  ZQCore/afc/AFCDevice.h
  ZQCore/afc/AFCDeviceRef.h
  ZQCore/afc/AFCFactory.h
  ZQCore/afc/AFCInterface.h
  ZQCore/afc/AFCiPod.h
  ZQCore/afc/AFCiPodRef.h
  ZQCore/afc/MobileDevice.h)
foreach(header ${ZQ_PUBLIC_HEADERS})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder} COMPONENT dev)
endforeach()

# A program installed outside the system's library folders finds the library beside it; the
# Debian packages (prefix /usr) carry no run path.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set_target_properties(zqpod PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endif()

install(TARGETS ZQCore EXPORT ZQCoreTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_SKIP)
install(TARGETS ZQCore
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev NAMELINK_ONLY)
install(TARGETS zqpod RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)

# Manual pages are installed compressed, as Debian keeps them (gzip -n: no name or time stamp,
# so the package is reproducible).
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/zqpod.1.gz
  COMMAND gzip -9nc ${CMAKE_BINARY_DIR}/zqpod.1 > ${CMAKE_BINARY_DIR}/zqpod.1.gz
  DEPENDS ${CMAKE_BINARY_DIR}/zqpod.1 VERBATIM)
add_custom_target(zqpod-man-gz ALL DEPENDS ${CMAKE_BINARY_DIR}/zqpod.1.gz)
install(FILES ${CMAKE_BINARY_DIR}/zqpod.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)

# pkg-config: paths relative to the .pc file itself, so a copy installed under DESTDIR or
# unpacked from a package answers for where it is.
file(RELATIVE_PATH ZQ_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" ZQ_PC_TO_PREFIX "${ZQ_PC_TO_PREFIX}")
configure_file(${CMAKE_SOURCE_DIR}/packaging/zqcore.pc.in ${CMAKE_BINARY_DIR}/zqcore.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/zqcore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# The CMake package.
include(CMakePackageConfigHelpers)
set(ZQ_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZQCore)
install(EXPORT ZQCoreTargets NAMESPACE ZQCore:: DESTINATION ${ZQ_CMAKE_DIR} COMPONENT dev)
configure_package_config_file(${CMAKE_SOURCE_DIR}/packaging/ZQCoreConfig.cmake.in
  ${CMAKE_BINARY_DIR}/ZQCoreConfig.cmake INSTALL_DESTINATION ${ZQ_CMAKE_DIR})
# Before 1.0 a minor release may change the interface, so only the same minor version matches.
write_basic_package_version_file(${CMAKE_BINARY_DIR}/ZQCoreConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/ZQCoreConfig.cmake ${CMAKE_BINARY_DIR}/ZQCoreConfigVersion.cmake
  DESTINATION ${ZQ_CMAKE_DIR} COMPONENT dev)
