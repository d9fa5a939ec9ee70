// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vireo::impl {

/// What a TestRequest was given.
struct RequestPlan {
    struct Part {
        std::string name;
        std::string fileName;
        std::string bytes;
        /// Empty for a field.
        std::string type;
    };

    using Headers = std::vector<std::pair<std::string, std::string>>;

    std::string method;
    std::string target;
    Headers headers;
    std::string body;
    /// Of the body; empty without one.
    std::string type;
    std::vector<Part> parts;
    /// 0 for a body whose length is announced.
    std::size_t chunkBytes = 0;
};

/// A request as its bytes go over the wire.
struct RequestText {
    /// @param authority what Host says.
    /// @param cookies what Cookie says; empty for none.
    /// @param standing headers of all requests, which those of the plan replace.
    static RequestText Of(const RequestPlan& plan, const std::string& authority, const std::string& cookies,
                          const RequestPlan::Headers& standing = {});

    /// With the empty line.
    std::string head;
    /// With its chunks.
    std::string body;
};

/// What Authorization says of a name and a password (RFC 7617), and of a token (RFC 6750).
///@{
std::string basicCredentials(std::string_view user, std::string_view password);
std::string bearerCredentials(std::string_view token);
///@}

/// The body of a form with files (RFC 7578).
/// @param boundary must not occur in a part.
std::string multipartOf(const std::vector<RequestPlan::Part>& parts, std::string_view boundary);

/// The body of a form without files: application/x-www-form-urlencoded.
std::string urlEncodedOf(const std::vector<RequestPlan::Part>& fields);

} // namespace vireo::impl
