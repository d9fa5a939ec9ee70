// SPDX-License-Identifier: MIT
#pragma once

#include "app/files/Conditions.h"
#include "app/files/FileRoot.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace vireo::impl {

struct Answer;
class HeadView;

/// A file as clients get it.
struct Representation {
    FoundFile found;
    std::string mimeType;
    /// Empty but for a file that is compressed in place of another one.
    std::string_view coding{};
    /// Whether others get another file at this place.
    bool hasVariants = false;
};

/// ETag and date of a file.
/// @param coding as Representation has it.
/// @param nowNs since 1970: what was written a moment ago may be written again without another date.
Validators validatorsOf(const FileFacts& facts, std::string_view coding, std::int64_t nowNs);

/// Sets what a GET or HEAD of it is answered with: 200, 206 or 304.
/// @throws HttpError 412 and 416.
void setRepresentation(const HeadView& head, Answer& answer, Representation&& representation);

} // namespace vireo::impl
