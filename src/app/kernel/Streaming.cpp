#include "app/kernel/Streaming.h"

#include "app/encoding/AnswerEncoding.h"
#include "app/kernel/AppExchange.h"
#include "app/kernel/Endpoint.h"
#include "app/kernel/Service.h"
#include "app/kernel/Throw.h"
#include "vireo/app/ClientGone.h"

#include <memory>
#include <string>
#include <utility>

namespace vireo {

namespace impl {

/// The body of a stream while it is written.
class OutputState {
public:
    OutputState(AppExchange& exchange, std::unique_ptr<BodyEncoder> encoder, std::optional<std::uint64_t> length,
                ClientWaits* waits)
        : exchange_(exchange), encoder_(std::move(encoder)), length_(length), waits_(waits) {}

    void write(std::string_view bytes) {
        if (length_ && bytes.size() > *length_ - written_) {
            throwLogicError("a stream writes more than the " + std::to_string(*length_) + " bytes of its length");
        }
        written_ += bytes.size();
        if (encoder_ == nullptr) {
            give(bytes);
        } else {
            encode([&](std::string& out) { encoder_->piece(bytes, false, out); });
        }
    }

    void flush() {
        if (encoder_ != nullptr) {
            encode([&](std::string& out) { encoder_->piece({}, true, out); });
        }
        exchange_.flush(waits_);
    }

    void end() {
        if (length_ && written_ != *length_) {
            throwLogicError("a stream ends " + std::to_string(*length_ - written_) + " bytes before its length");
        }
        if (encoder_ != nullptr) {
            encode([&](std::string& out) { encoder_->end(out); });
        }
        exchange_.endStream();
    }

    bool isGone() const { return exchange_.isGone(); }

private:
    template <typename Encode>
    void encode(const Encode& appendTo) {
        std::string out;
        appendTo(out);
        if (!out.empty()) {
            give(out);
        }
    }

    void give(std::string_view bytes) {
        if (!exchange_.write(bytes, waits_)) {
            throw ClientGone();
        }
    }

    AppExchange& exchange_;
    const std::unique_ptr<BodyEncoder> encoder_;
    const std::optional<std::uint64_t> length_;
    ClientWaits* const waits_;
    std::uint64_t written_ = 0;
};

void streamAnswer(ResponseState& state, std::optional<std::uint64_t> length,
                  const std::function<void(Output&)>& write) {
    AppExchange& exchange = *state.exchange;
    Answer& answer = state.answer;
    answer.dropBody();
    answer.isSet = true;
    answer.isStream = true;
    runHooks(state);
    if (!exchange.state().claim(AppExchange::Stage::Open)) {
        throw ClientGone();
    }
    state.isSent = true;
    try {
        const std::optional<std::uint64_t> sent = answer.encoder == nullptr ? length : std::nullopt;
        if (answer.encoder != nullptr) {
            announceEncoding(answer);
        }
        OutputState body(exchange, std::move(answer.encoder), length, &state.work->service->pool());
        exchange.beginStream(std::move(answer), sent);
        if (state.request.head.method() == "HEAD") {
            return;
        }
        Output output(body);
        write(output);
        body.end();
    } catch (...) {
        exchange.breakOff("InternalError");
        throw;
    }
}

} // namespace impl

Output& Output::write(std::string_view bytes) {
    state_.write(bytes);
    return *this;
}

void Output::flush() {
    state_.flush();
}

bool Output::isGone() const {
    return state_.isGone();
}

} // namespace vireo
