#include "engine/FormDecoding.h"

#include "frame/ExceptionLog.h"

#include <utility>

#include <microhttpd.h>

namespace ql::impl {

namespace {

/// What the engine keeps of a form: a name, or a header line of a part, fits into it.
constexpr std::size_t ProcessorBytes = 8192;

} // namespace

/// MHD_PostDataIterator; the closure is the FormDecoding.
struct FormCallback {
    static MHD_Result onData(void* decoding, MHD_ValueKind /*kind*/, const char* name, const char* fileName,
                             const char* contentType, const char* /*transferEncoding*/, const char* data,
                             std::uint64_t offset, std::size_t size) noexcept {
        return static_cast<FormDecoding*>(decoding)->add(name, fileName, contentType, {data, size}, offset) ? MHD_YES
                                                                                                            : MHD_NO;
    }
};

std::shared_ptr<FormDecoding> FormDecoding::Of(EngineConnection connection) {
    const std::string_view contentType = connection.header("Content-Type");
    std::unique_ptr<FormFilter> filter = FormFilter::For(contentType);
    if (!filter) {
        return nullptr;
    }
    const bool isMultipart = contentType[0] == 'm' || contentType[0] == 'M';
    std::shared_ptr<FormDecoding> decoding(new FormDecoding(connection, std::move(filter), isMultipart));
    return decoding->isUnderWay() ? decoding : nullptr;
}

FormDecoding::FormDecoding(EngineConnection connection, std::unique_ptr<FormFilter> filter, bool isMultipart)
    : processor_(MHD_create_post_processor(connection.handle(), ProcessorBytes, FormCallback::onData, this)),
      filter_(std::move(filter)),
      gatherer_(isMultipart) {}

FormDecoding::~FormDecoding() {
    end();
}

bool FormDecoding::isUnderWay() const {
    const qlMutexLocker locker(mutex_);
    return processor_ != nullptr;
}

std::optional<std::vector<FormPiece>> FormDecoding::decode(std::string_view body) {
    const qlMutexLocker locker(mutex_);
    try {
        if (processor_ != nullptr && filter_->filter(body, *this)) {
            return gatherer_.take();
        }
    } catch (...) {
        logCurrentException("the decoding of a form", "httpserver");
    }
    destroyProcessor();
    return std::nullopt;
}

std::optional<std::vector<FormPiece>> FormDecoding::finish() {
    const qlMutexLocker locker(mutex_);
    try {
        if (processor_ != nullptr && filter_->finish(*this) && destroyProcessor()) {
            return gatherer_.take();
        }
    } catch (...) {
        logCurrentException("the decoding of a form", "httpserver");
    }
    destroyProcessor();
    return std::nullopt;
}

void FormDecoding::end() noexcept {
    const qlMutexLocker locker(mutex_);
    destroyProcessor();
}

bool FormDecoding::pass(std::string_view bytes) {
    return MHD_post_process(processor_, bytes.data(), bytes.size()) == MHD_YES;
}

bool FormDecoding::add(const char* name, const char* fileName, const char* contentType, std::string_view bytes,
                       std::uint64_t offset) noexcept {
    try {
        return isGathering_ && gatherer_.add(name, fileName, contentType, bytes, offset);
    } catch (...) {
        logCurrentException("the decoding of a form", "httpserver");
        return false;
    }
}

bool FormDecoding::destroyProcessor() noexcept {
    // The engine decodes what it has left first.
    isGathering_ = false;
    return MHD_destroy_post_processor(std::exchange(processor_, nullptr)) == MHD_YES;
}

} // namespace ql::impl
