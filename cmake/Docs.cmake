# The API reference (`make docs`, or the `docs` target): Doxygen over the installed headers
# only, so it documents exactly the public interface. Written to build/docs/html.
find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  return()
endif()
set(ZQ_DOXYGEN_INPUT "")
foreach(header ${ZQ_PUBLIC_HEADERS})
  string(APPEND ZQ_DOXYGEN_INPUT " \"${CMAKE_SOURCE_DIR}/${header}\"")
endforeach()
configure_file(${CMAKE_SOURCE_DIR}/packaging/Doxyfile.in ${CMAKE_BINARY_DIR}/Doxyfile @ONLY)
add_custom_target(docs
  COMMAND ${DOXYGEN_EXECUTABLE} ${CMAKE_BINARY_DIR}/Doxyfile
  WORKING_DIRECTORY ${CMAKE_BINARY_DIR}
  COMMENT "Writing the API reference into ${CMAKE_BINARY_DIR}/docs/html" VERBATIM)
