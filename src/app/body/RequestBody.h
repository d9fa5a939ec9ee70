// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Body.h"
#include "vireo/app/Form.h"
#include "vireo/app/NewFile.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace ql {
class HttpReceiveDevice;
namespace http {
class FormDecoder;
}
} // namespace ql

namespace vireo::impl {

class ClientWaits;

/// The body of one request in each of its forms. One thread at a time.
class RequestBody {
public:
    struct Limits {
        std::uint64_t maxBody;
        /// None where only the end tells.
        std::optional<std::uint64_t> announced;
        /// All of it is there: nobody waits for the client.
        bool isWhole;
    };

    /// @param feed outlives this.
    /// @param decoder null where the body is no form.
    /// @param waits told of each wait for the client; null for nobody.
    RequestBody(ql::HttpReceiveDevice& feed, std::unique_ptr<ql::http::FormDecoder> decoder, const Limits& limits,
                ClientWaits* waits);
    ~RequestBody();

    Body& body();
    /// Reads all of it. Asked for again, it is the same one.
    Form& form(const FormOptions& options);
    FormParts& parts();
    NewFile newFile(const std::string& directory);

    /// Nothing more is read, also by those who have one of these. What was read stays. The chain's thread.
    void freeze();

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace vireo::impl
