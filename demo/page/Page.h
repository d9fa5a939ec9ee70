#pragma once

#include <string_view>

namespace demo {

/// A part of the page, built into the program.
struct PageFile {
    std::string_view path; ///< of the URL
    const char* type;      ///< its media type
    const char* tag;       ///< its ETag: another one when the file is another one
    std::string_view bytes;
};

/// The page at "/", or what it asks for. @return null when there is nothing at this path.
const PageFile* pageFile(std::string_view path);

} // namespace demo
