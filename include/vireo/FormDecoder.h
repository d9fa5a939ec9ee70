// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <memory>
#include <string_view>

namespace ql {
class HttpBaseRequest;
}

namespace ql::impl {
class FormDecoding;
}

namespace ql::http {

/// Gets the parts of a form from a FormDecoder, in the order in which they stand in the body. Called by the decoder's
/// decode() and finish(), on their thread with no lock held; what it throws passes through them, and nothing of the
/// form may be decoded any more then. All texts live as long as the call.
class VIREO_API FormReceiver {
public:
    FormReceiver();
    virtual ~FormReceiver();
    FormReceiver(const FormReceiver&) = delete;
    FormReceiver& operator=(const FormReceiver&) = delete;

    /// A part begins; the one before is whole.
    /// @param name of the field, decoded; never empty.
    /// @param fileName as browsers send it, decoded and without directories; empty when there is none.
    /// @param contentType as it came; empty when there is none.
    /// @param isFile whether it came with a file name, be it an empty one: what a browser sends where no file was
    /// chosen.
    virtual void onPart(std::string_view name, std::string_view fileName, std::string_view contentType,
                        bool isFile) = 0;

    /// The next bytes of the part that has begun last; none at all for an empty one.
    /// @param bytes never empty.
    virtual void onBytes(std::string_view bytes) = 0;

private:
    // Room for later versions.
    virtual void reserved1();
    virtual void reserved2();
};

/// Takes the body of a form apart while it arrives, "application/x-www-form-urlencoded" or "multipart/form-data". It
/// keeps no more of it than a name or a line.
///
/// Any thread may use it, one at a time. It may outlive the request.
class VIREO_API FormDecoder {
public:
    /// Of a request whose HttpServerImpl::handleRequest() or RequestOwner::onBodyReady() is under way, on that thread,
    /// once. The request keeps a part of it until it ends.
    /// @return null when its Content-Type names no form that can be decoded, as with further parameters behind the
    /// boundary or, by the engine, with a boundary of one byte; when there is no memory; and anywhere else.
    static std::unique_ptr<FormDecoder> Create(HttpBaseRequest& request);

    ~FormDecoder();
    FormDecoder(const FormDecoder&) = delete;
    FormDecoder& operator=(const FormDecoder&) = delete;

    /// Decodes the next bytes of the body, as HttpReceiveDevice gives them, in pieces of any size. A form is malformed
    /// also when a pair or a part of it has no name, or one with a NUL; when a name of a pair or a header line of a
    /// part is longer than 8 KiB; and when something but line ends stands behind the last boundary.
    /// @return false when the form is malformed, when there is no memory, or once the request has ended; and from then
    /// on.
    bool decode(std::string_view body, FormReceiver& receiver);

    /// The body has ended.
    /// @return false as decode() does, and when the form is cut short.
    bool finish(FormReceiver& receiver);

private:
    explicit FormDecoder(std::shared_ptr<impl::FormDecoding> decoding);

    std::shared_ptr<impl::FormDecoding> decoding_;
};

} // namespace ql::http
