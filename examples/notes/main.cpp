// A whole service: notes in SQLite, uploads kept by their SHA-256, a page for browsers with events and chat rooms.
//     vireo-notes PAGE-DIRECTORY DATA-DIRECTORY ADDRESS:PORT...
// With chain.pem and key.pem in the data directory it serves over TLS. The access log stands there, too.

#include <vireo/app.h>
#include <vireo/app/Compression.h>
#include <vireo/app/Cors.h>
#include <vireo/app/Json.h>
#include <vireo/app/SecurityHeaders.h>
#include <vireo/app/Session.h>
#include <vireo/support/HashHelper.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <sqlite3.h>
#include <stdexcept>

using vireo::HttpError;
using vireo::Request;
using vireo::Response;

namespace {
const std::string Note = "json_object('id', id, 'text', text)";

/// One connection, which threads take in turns.
class Database {
public:
    explicit Database(const std::string& path) { check(sqlite3_open(path.c_str(), &handle_)); }
    ~Database() { sqlite3_close(handle_); }
    /// Runs a statement to its end. @return the first column of its last row.
    std::optional<std::string> run(const std::string& sql, const std::vector<std::string>& values = {}) {
        const std::lock_guard lock(mutex_);
        sqlite3_stmt* statement = nullptr;
        check(sqlite3_prepare_v2(handle_, sql.c_str(), -1, &statement, nullptr));
        const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> owner(statement, sqlite3_finalize);
        for (int i = 0; i < static_cast<int>(values.size()); ++i) {
            const std::string& text = values[static_cast<std::size_t>(i)];
            check(sqlite3_bind_text(statement, i + 1, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT));
        }
        std::optional<std::string> last;
        int step = SQLITE_ROW;
        while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
            last = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
        }
        check(step == SQLITE_DONE ? SQLITE_OK : step);
        return last;
    }

private:
    void check(int result) const {
        if (result != SQLITE_OK) {
            throw std::runtime_error(sqlite3_errmsg(handle_));
        }
    }
    std::mutex mutex_;
    sqlite3* handle_ = nullptr;
};

/// The text of a note that a request brings.
std::string noteIn(Request& request) {
    const vireo::Json note = vireo::readJson(request);
    if (!note.is_object() || !note.contains("text") || !note["text"].is_string()) {
        throw HttpError(400, "a note is {\"text\": \"...\"}");
    }
    return note["text"];
}

std::string found(const std::optional<std::string>& note) {
    return note ? *note : throw HttpError(404, "no such note");
}

/// What a body or a part of a form brings, and its SHA-256 in hexadecimal, which is its name once it is kept.
struct Upload {
    template <class Source>
    Upload(Request& request, Source& source, const std::string& directory) : file(request.newFile(directory)) {
        ql::HashHelper hash(ql::HashType::Sha256);
        while (const auto piece = source.read()) {
            hash.addData(piece->data(), piece->size());
            file.write(*piece);
        }
        std::string digest(32, '\0');
        hash.finish(digest.data(), digest.size());
        for (const char c : digest) {
            const auto byte = static_cast<unsigned char>(c);
            name += {"0123456789abcdef"[byte / 16], "0123456789abcdef"[byte % 16]};
        }
    }
    vireo::NewFile file;
    std::string name;
};
} // namespace

int main(int argc, char** argv) try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const std::string data = arguments.at(1) + "/", files = data + "files";
    const bool hasTls = std::filesystem::exists(data + "chain.pem");
    std::filesystem::create_directories(files);
    Database database(data + "notes.db");
    database.run("CREATE TABLE IF NOT EXISTS notes (id INTEGER PRIMARY KEY AUTOINCREMENT, text TEXT NOT NULL)");
    const vireo::Sessions sessions(vireo::SessionOptions(vireo::newKey()).secure(hasTls));
    vireo::EventChannel changes(vireo::EventOptions().replay(100));
    const vireo::Rooms rooms;
    vireo::App app;
    app.use(vireo::securityHeaders()).use(vireo::compression()).use(sessions.middleware());
    app.health("/health");
    app.metrics("/metrics");
    app.files("/", arguments.at(0));
    app.files("/files", files);
    app.post("/login", [&](Request& request, Response& response) {
        sessions.of(request).clear(); // whatever somebody else may have left there
        sessions.of(request).set("name", request.form(vireo::FormOptions().maxFieldBytes(100))["name"]);
        response.redirect("/");
    });
    vireo::Group api = app.group("/api");
    api.use(vireo::cors(vireo::CorsOptions().origin("https://notes.example").method("PUT").header("Content-Type")));
    api.get("/events", [&](Request&, Response& response) { response.events(changes); });
    api.get("/notes", [&](Request&, Response& response) {
        response.jsonText(*database.run("SELECT json_group_array(" + Note + ") FROM notes"));
    });
    api.post("/notes", [&](Request& request, Response& response) {
        const auto note = database.run("INSERT INTO notes (text) VALUES (?) RETURNING " + Note, {noteIn(request)});
        response.status(201).header("Location", "/api/notes/" + vireo::Json::parse(*note)["id"].dump()).jsonText(*note);
        changes.publish({.data = *note, .event = "note"});
    });
    api.get("/notes/{id:int}", [&](Request& request, Response& response) {
        response.jsonText(found(database.run("SELECT " + Note + " FROM notes WHERE id = ?", {request.path("id")})));
    });
    api.put("/notes/{id:int}", [&](Request& request, Response& response) {
        const std::string sql = "UPDATE notes SET text = ? WHERE id = ? RETURNING " + Note;
        const std::string note = found(database.run(sql, {noteIn(request), request.path("id")}));
        response.jsonText(note);
        changes.publish({.data = note, .event = "note"});
    });
    api.del("/notes/{id:int}", [&](Request& request, Response& response) {
        const auto note = database.run("DELETE FROM notes WHERE id = ? RETURNING " + Note, {request.path("id")});
        changes.publish({.data = found(note), .event = "gone"});
        response.empty();
    });
    vireo::Group uploads = api.group("").maxBody(std::uint64_t{1} << 30U);
    uploads.put("/files", [&](Request& request, Response& response) {
        Upload upload(request, request.body(), files);
        upload.file.keepAs(upload.name);
        response.status(201).text(upload.name + "\n");
    });
    uploads.post("/files", [&](Request& request, Response& response) {
        std::vector<Upload> whole;
        std::string names;
        while (vireo::FormPart* part = request.parts().next()) {
            if (part->isFile()) {
                names += whole.emplace_back(request, *part, files).name + " " + part->fileName() + "\n";
            }
            if (whole.size() > 20) { // which are open files
                throw HttpError(413, "20 files at most");
            }
        }
        std::ranges::for_each(whole, [](Upload& upload) { upload.file.keepAs(upload.name); });
        response.status(201).text(names);
    });
    app.webSocket("/chat/{room}", [&](Request& request, vireo::SocketOpening& opening) {
        const std::string name = sessions.of(request).get("name");
        if (name.empty()) {
            return opening.refuse(401, "log in first");
        }
        const vireo::Room room = rooms[request.path("room")];
        opening.accept()
            .onOpen([=](vireo::Socket& socket) { room.add(socket); })
            .onText([=](vireo::Socket&, std::string_view text) { room.send(name + ": " + std::string(text)); });
    });
    return app.run({.listen = {arguments.begin() + 2, arguments.end()},
                    .certificate = hasTls ? data + "chain.pem" : "",
                    .key = hasTls ? data + "key.pem" : "",
                    .accessLog = data + "access.log"});
} catch (const std::exception& error) {
    std::cerr << "notes: " << error.what() << std::endl;
    return 1;
}
