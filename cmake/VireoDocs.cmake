# The target "docs": the API reference and the guides as one site. Doxygen is looked for when the target is built, so
# that nobody needs it who does not want the site.

configure_file("${PROJECT_SOURCE_DIR}/docs/Doxyfile.in" "${PROJECT_BINARY_DIR}/docs/Doxyfile" @ONLY)
add_custom_target(
    docs
    COMMAND "${CMAKE_COMMAND}" -E rm -rf html
    COMMAND doxygen "${PROJECT_BINARY_DIR}/docs/Doxyfile"
    # What the README links to.
    COMMAND "${CMAKE_COMMAND}" -E copy "${PROJECT_SOURCE_DIR}/examples/hello/main.cpp" html/examples/hello/main.cpp
    COMMAND "${CMAKE_COMMAND}" -E copy "${PROJECT_SOURCE_DIR}/examples/hello-core/main.cpp"
            html/examples/hello-core/main.cpp
    COMMAND "${CMAKE_COMMAND}" -E copy "${PROJECT_SOURCE_DIR}/LICENSE" html/LICENSE
    WORKING_DIRECTORY "${PROJECT_BINARY_DIR}/docs"
    COMMENT "Building the documentation in ${PROJECT_BINARY_DIR}/docs/html"
    VERBATIM)
