# The target "docs": the guides and the reference as one site. What makes it is looked for when the target is built, so
# that nobody needs it who does not want the site: Doxygen for what the public headers say, Sphinx for the pages.

configure_file("${PROJECT_SOURCE_DIR}/docs/Doxyfile.in" "${PROJECT_BINARY_DIR}/docs/Doxyfile" @ONLY)
set(VIREO_SITE "${PROJECT_SOURCE_DIR}/docs/site")
add_custom_target(
    docs
    COMMAND "${CMAKE_COMMAND}" -E rm -rf html xml
    COMMAND doxygen "${PROJECT_BINARY_DIR}/docs/Doxyfile"
    COMMAND /usr/bin/python3 -B "${VIREO_SITE}/stage.py" "${PROJECT_SOURCE_DIR}" xml source
    COMMAND "${CMAKE_COMMAND}" -E env "VIREO_VERSION=${PROJECT_VERSION}" "VIREO_XML=${PROJECT_BINARY_DIR}/docs/xml"
            /usr/bin/python3 -B -m sphinx -b html -W --keep-going -q -d doctrees -c "${VIREO_SITE}" source html
    COMMAND /usr/bin/python3 -B "${VIREO_SITE}/check.py" html
    WORKING_DIRECTORY "${PROJECT_BINARY_DIR}/docs"
    COMMENT "Building the documentation in ${PROJECT_BINARY_DIR}/docs/html"
    VERBATIM)
