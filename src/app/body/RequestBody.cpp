#include "app/body/RequestBody.h"

#include "app/body/BodyReader.h"
#include "app/body/FormReader.h"
#include "app/body/FormState.h"
#include "app/body/NewFileState.h"
#include "app/kernel/Throw.h"
#include "vireo/FormDecoder.h"
#include "vireo/app/HttpError.h"

#include <exception>
#include <utility>

namespace vireo {

Body::Body(impl::BodyReader& reader) : reader_(reader) {}

std::optional<std::string_view> Body::read() {
    return reader_.read();
}

const std::string& Body::text() {
    return reader_.text();
}

std::optional<std::uint64_t> Body::announced() const {
    return reader_.announced();
}

void Body::saveTo(NewFile& file) {
    impl::NewFileState::of(file).fate = reader_.fate();
    while (const auto piece = reader_.read()) {
        file.write(*piece);
    }
}

} // namespace vireo

namespace vireo::impl {

struct RequestBody::Parts {
    Parts(ql::HttpReceiveDevice& feed, std::unique_ptr<ql::http::FormDecoder> formDecoder, const Limits& limits,
          ClientWaits* waits)
        : reader(feed, limits, waits), decoder(std::move(formDecoder)), body(reader) {}

    /// @throws HttpError 415
    FormReader& formReader();

    BodyReader reader;
    const std::unique_ptr<ql::http::FormDecoder> decoder;
    Body body;
    std::optional<FormReader> forms;
    bool isReadInParts = false;
    std::unique_ptr<Form> form;
    /// Why there is no form.
    std::exception_ptr failure;
};

FormReader& RequestBody::Parts::formReader() {
    if (forms) {
        return *forms;
    }
    FormSteps steps{[this](std::string_view bytes, auto& receiver) { return decoder->decode(bytes, receiver); },
                    [this](auto& receiver) { return decoder->finish(receiver); }};
    if (decoder == nullptr) {
        if (reader.announced() != 0U) {
            throw HttpError(415, "the body is no form");
        }
        steps = {[](std::string_view, auto&) { return true; }, [](auto&) { return true; }};
    }
    if (reader.hasBegun()) {
        throwLogicError("a form is asked for after some of the body was taken by read() or saveTo()");
    }
    return forms.emplace(reader, std::move(steps));
}

RequestBody::RequestBody(ql::HttpReceiveDevice& feed, std::unique_ptr<ql::http::FormDecoder> decoder,
                         const Limits& limits, ClientWaits* waits)
    : parts_(std::make_unique<Parts>(feed, std::move(decoder), limits, waits)) {}

RequestBody::~RequestBody() = default;

Body& RequestBody::body() {
    return parts_->body;
}

Form& RequestBody::form(const FormOptions& options) {
    if (parts_->failure) {
        std::rethrow_exception(parts_->failure);
    }
    if (!parts_->form) {
        if (parts_->isReadInParts) {
            throwLogicError("Request::form() after Request::parts()");
        }
        FormReader& reader = parts_->formReader();
        try {
            parts_->form = readForm(reader, FormLimits::of(options));
        } catch (...) {
            parts_->failure = std::current_exception();
            // With what was decoded: the request may last long.
            parts_->forms.reset();
            throw;
        }
    }
    return *parts_->form;
}

FormParts& RequestBody::parts() {
    if (parts_->form || parts_->failure) {
        throwLogicError("Request::parts() after Request::form()");
    }
    FormReader& reader = parts_->formReader();
    parts_->isReadInParts = true;
    return reader.parts();
}

void RequestBody::freeze() {
    parts_->reader.freeze();
}

NewFile RequestBody::newFile(const std::string& directory) {
    NewFile file(directory);
    NewFileState::of(file).fate = parts_->reader.fate();
    return file;
}

} // namespace vireo::impl
