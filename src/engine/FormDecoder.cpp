#include "vireo/FormDecoder.h"

#include "engine/FormDecoding.h"
#include "frame/ExceptionLog.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "streams/DaemonCall.h"
#include "vireo/HttpBaseRequest.h"

#include <optional>
#include <utility>
#include <vector>

namespace ql::http {

namespace {

/// @return false when there are none, for the form is malformed.
bool handOn(const std::optional<std::vector<impl::FormPiece>>& pieces, FormReceiver& receiver) {
    if (!pieces) {
        return false;
    }
    for (const impl::FormPiece& piece : *pieces) {
        if (piece.isPart) {
            receiver.onPart(piece.name, piece.fileName, piece.contentType, piece.isFile);
        } else {
            receiver.onBytes(piece.bytes);
        }
    }
    return true;
}

} // namespace

FormReceiver::FormReceiver() = default;
FormReceiver::~FormReceiver() = default;
void FormReceiver::reserved1() {}
void FormReceiver::reserved2() {}

std::unique_ptr<FormDecoder> FormDecoder::Create(HttpBaseRequest& request) {
    const impl::EngineConnection connection(static_cast<MHD_Connection*>(request.getOpaquePtr()));
    std::shared_ptr<impl::FormDecoding>& form = impl::RequestAccess::state(request).form;
    if (!impl::DaemonCall::isUnderWay() || connection.handle() == nullptr || form) {
        return nullptr;
    }
    try {
        form = impl::FormDecoding::Of(connection);
        return form ? std::unique_ptr<FormDecoder>(new FormDecoder(form)) : nullptr;
    } catch (...) {
        impl::logCurrentException("the decoding of a form", "httpserver");
        return nullptr;
    }
}

FormDecoder::FormDecoder(std::shared_ptr<impl::FormDecoding> decoding) : decoding_(std::move(decoding)) {}

FormDecoder::~FormDecoder() {
    decoding_->end();
}

bool FormDecoder::decode(std::string_view body, FormReceiver& receiver) {
    return handOn(decoding_->decode(body), receiver);
}

bool FormDecoder::finish(FormReceiver& receiver) {
    return handOn(decoding_->finish(), receiver);
}

} // namespace ql::http
