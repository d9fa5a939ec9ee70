// Notes by REST: GET, HEAD and POST /notes; GET, HEAD, PUT and DELETE /notes/ID. A note is a JSON object with a text.
//     vireo-rest-json 8181
//     curl --json '{"text": "buy seeds"}' http://127.0.0.1:8181/notes
//     curl http://127.0.0.1:8181/notes

#include <vireo/app.h>
#include <vireo/app/Json.h>
#include <vireo/support/qlMutex.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>

namespace {

/// What the requests share. Any thread.
struct Notes {
    qlMutex mutex;
    std::map<std::uint64_t, std::string> texts QL_GUARDED_BY(mutex);
    std::uint64_t lastId QL_GUARDED_BY(mutex) = 0;

    auto& find(const vireo::Request& request) QL_REQUIRES(mutex) {
        const auto note = texts.find(request.path<std::uint64_t>("id"));
        return note != texts.end() ? *note : throw vireo::HttpError(404, "there is no such note");
    }
};

vireo::Json describe(const std::pair<const std::uint64_t, std::string>& note) {
    return {{"id", note.first}, {"text", note.second}};
}

/// Waits for the client, so never under the lock.
std::string readText(vireo::Request& request) {
    const vireo::Json note = vireo::readJson(request);
    if (!note.is_object() || !note.contains("text") || !note["text"].is_string()) {
        throw vireo::HttpError(400, "the body has to be a JSON object with a text");
    }
    return note["text"];
}

} // namespace

int main(int argc, char** argv) {
    Notes notes;
    vireo::App app;
    app.maxBody(65536);
    app.get("/notes", [&notes](vireo::Request&, vireo::Response& response) {
        vireo::Json list = vireo::Json::array();
        const qlMutexLocker lock(notes.mutex);
        for (const auto& note : notes.texts) {
            list.push_back(describe(note));
        }
        response.json(list);
    });
    app.post("/notes", [&notes](vireo::Request& request, vireo::Response& response) {
        const std::string text = readText(request);
        const qlMutexLocker lock(notes.mutex);
        const auto note = notes.texts.emplace(++notes.lastId, text).first;
        response.status(201).header("Location", "/notes/" + std::to_string(note->first)).json(describe(*note));
    });
    app.get("/notes/{id:int}", [&notes](vireo::Request& request, vireo::Response& response) {
        const qlMutexLocker lock(notes.mutex);
        response.json(describe(notes.find(request)));
    });
    app.put("/notes/{id:int}", [&notes](vireo::Request& request, vireo::Response& response) {
        const std::string text = readText(request);
        const qlMutexLocker lock(notes.mutex);
        auto& note = notes.find(request);
        note.second = text;
        response.json(describe(note));
    });
    app.del("/notes/{id:int}", [&notes](vireo::Request& request, vireo::Response& response) {
        const qlMutexLocker lock(notes.mutex);
        notes.texts.erase(notes.find(request).first);
        response.empty();
    });
    return app.run({.port = argc > 1 ? std::atoi(argv[1]) : 8181});
}
