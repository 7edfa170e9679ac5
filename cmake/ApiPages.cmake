# SPDX-License-Identifier: Apache-2.0
# The pages of the client library: target `doc`, into BUILD/doc/html.

# add_api_pages(): after install_client_library(), which knows the headers.
function(add_api_pages)
    set(DOXYGEN_OUTPUT ${CMAKE_BINARY_DIR}/doc)
    set(DOXYGEN_INPUT "$<JOIN:$<TARGET_PROPERTY:deviceservice,HEADER_SET>, >")
    get_target_property(imported binder IMPORTED)
    if(NOT imported)
        string(APPEND DOXYGEN_INPUT " $<JOIN:$<TARGET_PROPERTY:binder,HEADER_SET>, >")
    endif()
    configure_file(${CMAKE_SOURCE_DIR}/docs/Doxyfile.in ${CMAKE_BINARY_DIR}/Doxyfile.in @ONLY)
    file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/Doxyfile INPUT ${CMAKE_BINARY_DIR}/Doxyfile.in)
    add_custom_target(doc
        COMMAND ${CMAKE_COMMAND} -E make_directory ${DOXYGEN_OUTPUT}
        COMMAND doxygen ${CMAKE_BINARY_DIR}/Doxyfile
        COMMENT "Writing the pages of the client library to ${DOXYGEN_OUTPUT}/html"
        VERBATIM)
endfunction()
