# End-to-end checks of what is delivered: an installed copy (DESTDIR) with the example
# application built against it, and the Python module. The Debian packages are checked by
# `make test-deb` (they are built outside this build folder).
if(NOT ZQ_TESTS OR ZQ_FUZZ OR ZQ_SANITIZE)
  return()
endif()
add_test(NAME packaging.install
  COMMAND sh ${CMAKE_SOURCE_DIR}/tests/packaging/install_test.sh ${CMAKE_SOURCE_DIR} ${CMAKE_BINARY_DIR})
set_tests_properties(packaging.install PROPERTIES TIMEOUT 300)
if(TARGET zqcore_python)
  add_test(NAME packaging.python
    COMMAND ${Python_EXECUTABLE} -m pytest -q -p no:cacheprovider ${CMAKE_SOURCE_DIR}/tests/packaging/test_zqcore.py)
  set_tests_properties(packaging.python PROPERTIES TIMEOUT 300
    ENVIRONMENT "PYTHONPATH=${CMAKE_BINARY_DIR}/python;ZQ_BUILD=${CMAKE_BINARY_DIR};PYTHONDONTWRITEBYTECODE=1")
endif()
