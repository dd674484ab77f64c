# Compiles resource files into the library: each file becomes a byte array, looked up at run
# time by its name and type (the file name without and with its extension).
function(zq_embed_resources output)
  set(files ${ARGN})
  add_custom_command(
    OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -DOUTPUT=${output} "-DFILES=${files}" -P ${CMAKE_SOURCE_DIR}/cmake/WriteResources.cmake
    DEPENDS ${files} ${CMAKE_SOURCE_DIR}/cmake/WriteResources.cmake
    COMMENT "Embedding framework resources"
    VERBATIM)
endfunction()
