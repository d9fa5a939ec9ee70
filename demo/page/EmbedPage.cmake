# Turns the files of the DIRECTORY that make up the page into the C++ source OUTPUT. As bytes: compilers limit the length
# of a string literal.
set(ARRAYS "")
set(FILES "")

# add_page_file(path of the URL, file, media type)
function(add_page_file PATH NAME TYPE)
    file(READ "${DIRECTORY}/${NAME}" HEX_DIGITS HEX)
    file(SHA256 "${DIRECTORY}/${NAME}" DIGEST)
    string(SUBSTRING "${DIGEST}" 0 16 DIGEST)
    string(REGEX REPLACE "(..)" "0x\\1," BYTES "${HEX_DIGITS}")
    string(REGEX REPLACE "((0x..,){20})" "\\1\n    " BYTES "${BYTES}")
    string(MAKE_C_IDENTIFIER "Bytes_${NAME}" ARRAY)
    set(ARRAYS "${ARRAYS}constexpr unsigned char ${ARRAY}[] = {\n    ${BYTES}};\n\n" PARENT_SCOPE)
    set(FILES
        "${FILES}    {\"${PATH}\", \"${TYPE}\", \"\\\"${DIGEST}\\\"\", {reinterpret_cast<const char*>(${ARRAY}), sizeof(${ARRAY})}},\n"
        PARENT_SCOPE)
endfunction()

add_page_file(/ index.html "text/html; charset=utf-8")
add_page_file(/page.css page.css "text/css; charset=utf-8")
add_page_file(/page.js page.js "text/javascript; charset=utf-8")
add_page_file(/icon.svg icon.svg "image/svg+xml")

file(WRITE "${OUTPUT}" "#include \"page/Page.h\"

namespace demo {

namespace {

${ARRAYS}const PageFile Files[] = {
${FILES}};

} // namespace

const PageFile* pageFile(std::string_view path) {
    for (const PageFile& file : Files) {
        if (file.path == path) {
            return &file;
        }
    }
    return nullptr;
}

} // namespace demo
")
