# Turns the file INPUT into the C++ source OUTPUT. As bytes: compilers limit the length of a string literal.
file(READ "${INPUT}" HEX_DIGITS HEX)
string(REGEX REPLACE "(..)" "0x\\1," BYTES "${HEX_DIGITS}")
string(REGEX REPLACE "((0x..,){20})" "\\1\n    " BYTES "${BYTES}")
file(WRITE "${OUTPUT}" "#include \"page/Page.h\"

namespace demo {

namespace {

constexpr unsigned char Bytes[] = {
    ${BYTES}};

} // namespace

std::string_view page() {
    return {reinterpret_cast<const char*>(Bytes), sizeof(Bytes)};
}

} // namespace demo
")
