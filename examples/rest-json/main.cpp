// Notes by REST: GET, HEAD and POST /notes; GET, HEAD, PUT and DELETE /notes/ID. A note is a JSON object with a text.
//
//     curl --json '{"text": "buy seeds"}' http://127.0.0.1:8181/notes
//     curl http://127.0.0.1:8181/notes

#include "skeleton/Application.h"
#include "skeleton/Request.h"
#include "vireo/support/qlMutex.h"

#include <charconv>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

constexpr std::size_t MaxBodyBytes = 65536;

/// What the requests share. Any thread.
struct Notes {
    qlMutex mutex;
    std::map<std::uint64_t, std::string> texts QL_GUARDED_BY(mutex);
    std::uint64_t lastId QL_GUARDED_BY(mutex) = 0;
};

json describe(std::uint64_t id, const std::string& text) {
    return {{"id", id}, {"text", text}};
}

class NoteRequest final : public skeleton::Request {
public:
    NoteRequest(ql::http::HttpServerImpl& server, Notes& notes) : Request(server), notes_(notes) {}

private:
    /// HEAD is answered as GET is: the library sends the head of it alone.
    bool isRead() const { return getRequestType() == RequestType::Get || isHead(); }

    void answerJson(std::uint32_t status, const json& body) { answer(status, "application/json", body.dump() + "\n"); }
    void answerError(std::uint32_t status, const char* what) { answerJson(status, {{"error", what}}); }

    /// The text of the note in the body. @return false when there is none; the request is answered then.
    bool readText(std::string& text) {
        std::vector<char> body(MaxBodyBytes + 1);
        body.resize(readBody(body));
        if (body.size() > MaxBodyBytes) {
            answerError(413, "a note has at most 64 KiB");
            return false;
        }
        const json note = json::parse(body.begin(), body.end(), nullptr, false);
        if (!note.is_object() || !note.contains("text") || !note["text"].is_string()) {
            answerError(400, "the body has to be a JSON object with a text");
            return false;
        }
        text = note["text"];
        return true;
    }

    void serveCollection() {
        if (isRead()) {
            json list = json::array();
            const qlMutexLocker lock(notes_.mutex);
            for (const auto& [id, text] : notes_.texts) {
                list.push_back(describe(id, text));
            }
            answerJson(200, list);
        } else if (getRequestType() == RequestType::Post) {
            std::string text;
            if (readText(text)) { // waits for the client, so not under the lock
                const qlMutexLocker lock(notes_.mutex);
                const std::uint64_t id = ++notes_.lastId;
                notes_.texts[id] = text;
                response().setHeader("Location", "/notes/" + std::to_string(id));
                answerJson(201, describe(id, text));
            }
        } else {
            response().setHeader("Allow", "GET, HEAD, POST");
            answerError(405, "GET, HEAD or POST");
        }
    }

    void serveNote(std::uint64_t id) {
        std::string text;
        if (getRequestType() == RequestType::Put && !readText(text)) {
            return;
        }
        const qlMutexLocker lock(notes_.mutex);
        const auto note = notes_.texts.find(id);
        if (note == notes_.texts.end()) {
            answerError(404, "there is no such note");
        } else if (isRead()) {
            answerJson(200, describe(id, note->second));
        } else if (getRequestType() == RequestType::Put) {
            note->second = text;
            answerJson(200, describe(id, text));
        } else if (getRequestType() == RequestType::Delete) {
            notes_.texts.erase(note);
            answer(204, "application/json", "");
        } else {
            response().setHeader("Allow", "GET, HEAD, PUT, DELETE");
            answerError(405, "GET, HEAD, PUT or DELETE");
        }
    }

    Pause serve() override {
        const std::string& path = getParsedUrl().getDecodedPath();
        const std::string prefix = "/notes/";
        std::uint64_t id = 0;
        const char* const end = path.data() + path.size();
        if (hasParseError()) {
            answerError(400, getParseError().c_str());
        } else if (path == "/notes") {
            serveCollection();
        } else if (path.starts_with(prefix) && std::from_chars(path.data() + prefix.size(), end, id).ptr == end) {
            serveNote(id);
        } else {
            answerError(404, "there are /notes and /notes/ID");
        }
        return {};
    }

    Notes& notes_;
};

} // namespace

int main(int argc, char** argv) {
    Notes notes;
    return skeleton::serveUntilSignal("rest-json", skeleton::parametersOf(argc, argv), [&notes] {
        return std::make_unique<skeleton::PooledServer>(
            [&notes](ql::http::HttpServerImpl& server) { return std::make_unique<NoteRequest>(server, notes); });
    });
}
