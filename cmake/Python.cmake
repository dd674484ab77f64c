# The Python module `zqcore`: a package folder with the pybind11 extension _zqcore beside its
# __init__.py, laid out in the build tree (build/python) as it is installed, so the tests import
# it from there. Debian's interpreter and pybind11 are used, whatever `python3` is first on PATH.
option(ZQ_PYTHON "Build the Python module zqcore" ON)
if(NOT ZQ_PYTHON OR ZQ_FUZZ OR ZQ_SANITIZE)
  return()
endif()

set(Python_EXECUTABLE /usr/bin/python3 CACHE FILEPATH "The Python the module is built for")
find_package(Python 3 REQUIRED COMPONENTS Interpreter Development.Module)
set(PYBIND11_FINDPYTHON ON)
find_package(pybind11 2.6 CONFIG REQUIRED)

set(ZQ_PYTHON_BUILD_DIR ${CMAKE_BINARY_DIR}/python/zqcore)
pybind11_add_module(zqcore_python MODULE python/_zqcore.cpp)
set_target_properties(zqcore_python PROPERTIES OUTPUT_NAME _zqcore
  LIBRARY_OUTPUT_DIRECTORY ${ZQ_PYTHON_BUILD_DIR})
target_compile_options(zqcore_python PRIVATE ${ZQ_WARNINGS})
target_compile_definitions(zqcore_python PRIVATE ZQCORE_VERSION="${PROJECT_VERSION}")
target_link_libraries(zqcore_python PRIVATE ZQCore PkgConfig::GIO)
add_custom_command(TARGET zqcore_python POST_BUILD
  COMMAND ${CMAKE_COMMAND} -E copy_if_different ${CMAKE_SOURCE_DIR}/python/zqcore/__init__.py
    ${ZQ_PYTHON_BUILD_DIR}/__init__.py)

# Debian keeps the modules of its python3 packages in one version-independent folder below /usr;
# below any other prefix (/usr/local) its python3 looks in the version's own dist-packages.
# -DZQ_PYTHON_INSTALL_DIR=... chooses another.
if(NOT DEFINED ZQ_PYTHON_INSTALL_DIR)
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(ZQ_PYTHON_INSTALL_DIR lib/python3/dist-packages)
  else()
    set(ZQ_PYTHON_INSTALL_DIR lib/python${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}/dist-packages)
  endif()
endif()
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  file(RELATIVE_PATH ZQ_PYTHON_TO_LIB ${CMAKE_INSTALL_PREFIX}/${ZQ_PYTHON_INSTALL_DIR}/zqcore
    ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(zqcore_python PROPERTIES INSTALL_RPATH "$ORIGIN/${ZQ_PYTHON_TO_LIB}")
endif()
install(TARGETS zqcore_python LIBRARY DESTINATION ${ZQ_PYTHON_INSTALL_DIR}/zqcore COMPONENT python)
install(FILES python/zqcore/__init__.py DESTINATION ${ZQ_PYTHON_INSTALL_DIR}/zqcore COMPONENT python)
