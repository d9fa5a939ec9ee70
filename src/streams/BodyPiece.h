// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace ql {
class HttpBaseRequest;
}

namespace ql::impl {

class ResponseWait;

/// What a streamed response has for the engine at one call.
struct BodyPiece {
    enum class Kind {
        Bytes, ///< `size` of them were copied
        Wait,  ///< nothing yet: ask again
        End,   ///< everything was taken
        Error, ///< the body stays incomplete
    };

    Kind kind;
    std::uint64_t size = 0; ///< 0 but with Bytes
};

/// Copies the next bytes of a response's body to `buffer`, at most `max`. Daemon thread.
/// @param request null for none, which is an error.
/// @param wait is told what came of it.
BodyPiece takeBodyPiece(HttpBaseRequest* request, char* buffer, std::size_t max, ResponseWait& wait);

} // namespace ql::impl
