// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ql::impl {

/// A part's beginning, or bytes of the part that began last.
struct FormPiece {
    bool isPart = false;
    /// Of a part.
    ///@{
    std::string name;
    std::string fileName;
    std::string contentType;
    bool isFile = false;
    ///@}
    std::string bytes;
};

/// Makes pieces of what the engine tells of a form.
class PartGatherer {
public:
    /// @param isMultipart of which the first part has a separator before it, too, and names have escapes that the
    /// engine leaves.
    explicit PartGatherer(bool isMultipart) : isMultipart_(isMultipart), mayBegin_(!isMultipart) {}

    /// A part may begin.
    void separate() { mayBegin_ = true; }

    /// The engine has decoded so much. Texts may be null.
    /// @param offset of the bytes in their part.
    /// @return false for what is malformed.
    /// @throws std::bad_alloc
    bool add(const char* name, const char* fileName, const char* contentType, std::string_view bytes,
             std::uint64_t offset);

    std::vector<FormPiece> take();

private:
    const bool isMultipart_;
    bool mayBegin_;
    bool hasPart_ = false;
    /// Of the part.
    std::uint64_t size_ = 0;
    std::vector<FormPiece> pieces_;
};

} // namespace ql::impl
