# The desktop application (gui/) is a CMake project of its own that finds ZQCore as any outside
# application would: through the installed CMake package. Here the framework's runtime and dev
# components are installed into a staging prefix under the build folder, and gui/ is configured
# and built against that prefix, so that a header the application needs but the install leaves
# out fails this build instead of passing unnoticed. Its tests join this build's ctest run.
option(ZQ_GUI "Build the desktop application (Qt 6) against a staged install of the framework" ON)
if(NOT ZQ_GUI OR ZQ_FUZZ OR ZQ_SANITIZE)
  return()
endif()

set(ZQ_GUI_STAGE ${CMAKE_BINARY_DIR}/gui-stage)
set(ZQ_GUI_BUILD ${CMAKE_BINARY_DIR}/gui)
# (The components carry the Debian changelogs too, hence their target.)
add_custom_target(zqcore-stage
  COMMAND ${CMAKE_COMMAND} --install ${CMAKE_BINARY_DIR} --prefix ${ZQ_GUI_STAGE} --component runtime
  COMMAND ${CMAKE_COMMAND} --install ${CMAKE_BINARY_DIR} --prefix ${ZQ_GUI_STAGE} --component dev
  DEPENDS ZQCore zqcore-debian-docs VERBATIM COMMENT "Installing ZQCore into ${ZQ_GUI_STAGE} for the desktop application")

# The same compiler, flags (Debian's hardening flags for `make deb`) and prefix as the framework.
set(ZQ_GUI_ARGS
  -DCMAKE_BUILD_TYPE=${CMAKE_BUILD_TYPE}
  -DCMAKE_PREFIX_PATH=${ZQ_GUI_STAGE}
  -DCMAKE_INSTALL_PREFIX=${CMAKE_INSTALL_PREFIX}
  -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
  -DCMAKE_CXX_FLAGS=${CMAKE_CXX_FLAGS}
  -DCMAKE_EXE_LINKER_FLAGS=${CMAKE_EXE_LINKER_FLAGS}
  -DZQ_GUI_TESTS=${ZQ_TESTS})
set(ZQ_GUI_DEPENDS zqcore-stage)
if(ZQ_TESTS)
  # The tests write sample devices, run the simulator and compare with zqpod's listing.
  list(APPEND ZQ_GUI_ARGS
    -DZQ_MAKE_SAMPLE=$<TARGET_FILE:zq-make-sample>
    -DZQ_DEVICE_SIM=$<TARGET_FILE:zq-device-sim>
    -DZQPOD=$<TARGET_FILE:zqpod>
    -DZQ_DEVICE_SIM_SUPPORT=${CMAKE_SOURCE_DIR}/tests/support)
  list(APPEND ZQ_GUI_DEPENDS zq-make-sample zq-device-sim zqpod)
endif()
if(CMAKE_CXX_COMPILER_LAUNCHER)
  list(APPEND ZQ_GUI_ARGS -DCMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER})
endif()
include(ExternalProject)
ExternalProject_Add(zqpod-gui
  SOURCE_DIR ${CMAKE_SOURCE_DIR}/gui
  BINARY_DIR ${ZQ_GUI_BUILD}
  CMAKE_ARGS ${ZQ_GUI_ARGS}
  INSTALL_COMMAND ""
  BUILD_ALWAYS ON
  DEPENDS ${ZQ_GUI_DEPENDS})

# The application's tests, listed with this build's own (their commands are absolute paths).
# Before the first build there is no such list yet; ctest then simply runs without them.
if(ZQ_TESTS)
  file(WRITE ${CMAKE_BINARY_DIR}/GuiTests.cmake
    "if(EXISTS \"${ZQ_GUI_BUILD}/tests/CTestTestfile.cmake\")\n  include(\"${ZQ_GUI_BUILD}/tests/CTestTestfile.cmake\")\nendif()\n")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${CMAKE_BINARY_DIR}/GuiTests.cmake)
endif()

# Installed as the Debian package zqpod-gui (component gui). `make install` leaves it out, as it
# leaves out the packages' documents; `cmake --install build/gui` installs it on its own.
# Stripped here: CPack strips only the files of install() rules it knows, and this one is a
# nested install.
install(CODE "execute_process(COMMAND \"${CMAKE_COMMAND}\" --install \"${ZQ_GUI_BUILD}\" --strip --prefix \"\${CMAKE_INSTALL_PREFIX}\" COMMAND_ERROR_IS_FATAL ANY)"
  COMPONENT gui EXCLUDE_FROM_ALL)
