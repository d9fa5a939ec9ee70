// Forms through the engine, inside requests of a real server, in any pieces: they come out as from a single piece, and
// as a reference that looks at all of the form at once has them.
//
// An input is a byte, which kind of form it is, and the form: for the kinds that are taken as they are the body in
// pieces, for the one that is put together the size of its pieces and its parts.

#include "Check.h"
#include "FormReference.h"
#include "RoadServer.h"
#include "reliability/Choices.h"
#include "support/FakeRequest.h"
#include "support/RawClient.h"
#include "vireo/FormDecoder.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace vireofuzz;
using namespace vireotest;
using Pieces = std::vector<std::string>;

struct Part {
    std::string name;
    std::string fileName;
    std::string contentType;
    bool isFile = false;
    std::string bytes;

    bool operator==(const Part&) const = default;
};

struct Form {
    std::vector<Part> parts;
    /// Without it only some of the parts are here.
    bool isWhole = false;
};

class Receiver : public ql::http::FormReceiver {
public:
    explicit Receiver(std::vector<Part>& parts) : parts_(parts) {}

    void onPart(std::string_view name, std::string_view fileName, std::string_view contentType, bool isFile) override {
        check(!name.empty() && name.find('\0') == std::string_view::npos, "a name that should have been refused");
        parts_.push_back({std::string(name), std::string(fileName), std::string(contentType), isFile, ""});
    }
    void onBytes(std::string_view bytes) override {
        check(!parts_.empty() && !bytes.empty(), "no bytes, or bytes of no part");
        parts_.back().bytes += bytes;
    }

private:
    std::vector<Part>& parts_;
};

Form decode(ql::HttpBaseRequest& request, const Pieces& pieces) {
    const std::unique_ptr<ql::http::FormDecoder> decoder = ql::http::FormDecoder::Create(request);
    check(decoder != nullptr, "no form");
    Form form;
    Receiver receiver(form.parts);
    bool isGood = true;
    for (const std::string& piece : pieces) {
        const bool isDecoded = decoder->decode(piece, receiver);
        check(isGood || !isDecoded, "a form that was refused goes on");
        isGood = isDecoded;
    }
    form.isWhole = decoder->finish(receiver);
    check(isGood || !form.isWhole, "a form that was refused is whole");
    return form;
}

/// Answers at once, with nothing.
class RoadRequest : public FakeRequest {
public:
    using FakeRequest::FakeRequest;

    ql::HttpResponseInterface& getResponse() override { return response; }

    void answer() {
        handleOnThisThread();
        editInternalResponseDevice().endSending();
        editInternalResponseDevice().releaseResponse();
        workerThreadStopHandling({});
    }
};

/// The server that all runs share. Its one thread decodes, while that of the runs waits for the answer.
class Road {
public:
    Road() {
        auto* const application = new FakeServerImpl;
        application->onCreate = [this, application] {
            requests_.remove_if([](const auto& request) { return request->isSchedulerDone(); });
            return requests_.emplace_back(std::make_unique<RoadRequest>(*application)).get();
        };
        application->onHandle = [this](ql::HttpBaseRequest* request) {
            form_ = decode(*request, *pieces_);
            static_cast<RoadRequest&>(*request).answer();
        };
        client_ = std::make_unique<RawClient>(serveForGood(application));
    }

    Form decoded(const std::string& contentType, const Pieces& pieces) {
        pieces_ = &pieces;
        check(client_->exchange(get("/", "Content-Type: " + contentType + "\r\n")).status == 200, "another answer");
        return std::move(form_);
    }

private:
    std::list<std::unique_ptr<RoadRequest>> requests_;
    const Pieces* pieces_ = nullptr;
    Form form_;
    std::unique_ptr<RawClient> client_;
};

std::string joined(const Pieces& pieces) {
    std::string whole;
    for (const std::string& piece : pieces) {
        whole += piece;
    }
    return whole;
}

Form checkPieces(Road& road, const std::string& contentType, const Pieces& pieces) {
    Form form = road.decoded(contentType, pieces);
    const Form whole = road.decoded(contentType, {joined(pieces)});
    check(form.isWhole == whole.isWhole, "pieces are a form, and the whole is none; or the other way round");
    check(!form.isWhole || form.parts == whole.parts, "pieces are another form");
    return form;
}

void checkUrlEncoded(Road& road, const Pieces& pieces) {
    const Form form = checkPieces(road, "application/x-www-form-urlencoded", pieces);
    const Pairs expected = pairsOfForm(joined(pieces));
    check(form.isWhole == areNamed(expected), "a form is taken or refused against the rules");
    const bool isSame = std::equal(form.parts.begin(), form.parts.end(), expected.begin(), expected.end(),
                                   [](const Part& part, const auto& pair) {
                                       return part == Part{pair.first, "", "", false, pair.second};
                                   });
    check(!form.isWhole || isSame, "other pairs");
}

/// Of letters alone, and of one at least.
std::string takeName(Choices& input) {
    std::string name = input.takeText(1 + input.takeNumber(15)) + "n";
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return static_cast<char>('a' + static_cast<unsigned char>(c) % 26); });
    return name;
}

void checkPutTogether(Road& road, Choices& input) {
    const std::size_t pieceSize = input.takeNumber(300) + 1;
    std::vector<Part> parts;
    std::string body;
    while (!input.isUsedUp()) {
        Part part;
        part.name = takeName(input);
        part.isFile = input.takeBool();
        if (part.isFile) {
            part.fileName = takeName(input);
            part.contentType = input.takeBool() ? "text/plain" : "";
        }
        part.bytes = input.takeText(input.takeNumber(0xFFFF));
        if (part.bytes.find("--boundary") != std::string::npos) {
            return;
        }
        body += "--boundary\r\nContent-Disposition: form-data; name=\"" + part.name + "\"";
        body += part.isFile ? "; filename=\"" + part.fileName + "\"\r\n" : "\r\n";
        body += part.contentType.empty() ? "" : "Content-Type: " + part.contentType + "\r\n";
        body += "\r\n" + part.bytes + "\r\n";
        parts.push_back(part);
    }
    body += "--boundary--\r\n";
    Pieces pieces;
    for (std::size_t at = 0; at < body.size(); at += pieceSize) {
        pieces.push_back(body.substr(at, pieceSize));
    }
    const Form form = road.decoded("multipart/form-data; boundary=boundary", pieces);
    check(form.isWhole && form.parts == parts, "other parts than those put together");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Never destroyed: the process ends without a stop, and nothing is left to leak.
    static Road& road = *new Road;
    Choices input(data, size);
    switch (input.takeNumber(3)) {
    case 0:
        checkUrlEncoded(road, input.takePieces());
        break;
    case 1:
        checkPieces(road, "multipart/form-data; boundary=bb", input.takePieces());
        break;
    case 2:
        checkPieces(road, "multipart/form-data; boundary=--b-b", input.takePieces());
        break;
    default:
        checkPutTogether(road, input);
    }
    return 0;
}
