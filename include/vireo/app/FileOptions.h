// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/export.h"

#include <memory>
#include <string>

namespace vireo {

namespace impl {
struct FileRules;
}

/// How Group::files() serves a directory. What cannot be throws std::invalid_argument.
class VIREO_APP_API FileOptions {
public:
    FileOptions();
    FileOptions(const FileOptions& other);            ///< copies
    FileOptions& operator=(const FileOptions& other); ///< copies
    ~FileOptions();

    /// The name of the file that stands for its directory; empty for none. `index.html` by default. Throws
    /// std::invalid_argument for what is no name of one file.
    FileOptions& index(std::string name);
    /// Whether a directory without such a file is shown as a list. Off by default.
    FileOptions& listing(bool on = true);
    /// Whether files and directories are served whose name begins with a dot. Off by default.
    FileOptions& dotFiles(bool on = true);
    /// The header `Cache-Control` of files and lists; empty for none. `no-cache` by default, with which a browser asks
    /// each time and is told in a few bytes that nothing has changed.
    FileOptions& cacheControl(std::string value);
    /// Whether a file `page.html.br` or `page.html.gz`, which is no older than `page.html`, is sent in its place to
    /// clients that take it. On by default.
    FileOptions& precompressed(bool on = true);
    /// The media type of an extension, in place of the one that is known, if any.
    /// @param extension without the dot; upper and lower case are one. Empty for files that have none.
    FileOptions& type(std::string extension, std::string mime);
    /// The file, as a path in the directory with or without a slash before it, that is sent with status 200 where there
    /// is none: of an application that routes in the browser. Empty, and so 404, by default.
    FileOptions& fallback(std::string path);

private:
    friend struct impl::FileRules;

    std::unique_ptr<impl::FileRules> rules_;
};

} // namespace vireo
