// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/FormDecoder.h"
#include "vireo/app/Form.h"

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vireo::impl {

class BodyReader;

/// The two steps of a decoder of forms.
struct FormSteps {
    std::function<bool(std::string_view body, ql::http::FormReceiver& receiver)> decode;
    std::function<bool(ql::http::FormReceiver& receiver)> finish;
};

/// What is known of a part before its content.
struct PartHead {
    std::string name;
    std::string fileName;
    std::string contentType;
    bool isFile = false;
};

class FormReader;

/// The part that a FormReader is in.
struct PartState {
    explicit PartState(FormReader& formReader) : reader(formReader), part(*this) {}

    static FormPart make(PartState& state) { return FormPart(state); }

    FormReader& reader;
    PartHead head;
    FormPart part;
};

/// Asks a decoder, which tells of parts as the body comes, for one part after the other. One thread at a time.
class FormReader final : private ql::http::FormReceiver {
public:
    /// @param body outlives this.
    FormReader(BodyReader& body, FormSteps&& steps);

    FormParts& parts() { return parts_; }
    BodyReader& body() { return body_; }

    /// The next part; null at the end.
    PartState* next();
    /// The next piece of the part; none at its end.
    std::optional<std::string_view> read();

private:
    /// The beginning of a part, and what has come of its content.
    struct Piece {
        std::optional<PartHead> head;
        std::string bytes;
    };

    void onPart(std::string_view name, std::string_view fileName, std::string_view contentType, bool isFile) override;
    void onBytes(std::string_view bytes) override;

    /// Decodes more of the body. @return false at its end.
    bool decodeMore();
    [[noreturn]] void fail();

    BodyReader& body_;
    const FormSteps steps_;
    /// What was received and not decoded.
    std::string_view rest_;
    /// What was decoded and not asked for.
    std::deque<Piece> pieces_;
    /// What read() has given last.
    std::string given_;
    bool isMalformed_ = false;
    bool isAtEnd_ = false;
    PartState state_{*this};
    FormParts parts_{*this};
};

} // namespace vireo::impl
