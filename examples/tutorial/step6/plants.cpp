#include "plants.h"

#include <vireo/app/Authentication.h>
#include <vireo/app/CrossOriginProtection.h>
#include <vireo/app/RateLimit.h>
#include <vireo/app/SecurityHeaders.h>
#include <vireo/app/Session.h>

using namespace std::chrono_literals;

using vireo::HttpError;
using vireo::Request;
using vireo::Response;

Board::Board() {
    publish();
}

void Board::publish() {
    changes_.publish(vireo::Json(plants_).dump());
}

std::map<std::string, Plant> Board::all() const {
    const std::lock_guard lock(mutex_);
    return plants_;
}

Plant Board::find(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    const auto plant = plants_.find(name);
    return plant != plants_.end() ? plant->second : throw HttpError(404, "there is no such plant");
}

void Board::put(const std::string& name, int days) {
    if (days < 1) {
        throw HttpError(400, "days begin at 1");
    }
    if (name.size() > 50 || name.find_first_not_of("abcdefghijklmnopqrstuvwxyz-") != std::string::npos) {
        throw HttpError(400, "names are of small letters, 50 at most"); // they become names of files
    }
    const std::lock_guard lock(mutex_);
    plants_[name].days = days;
    publish();
}

void Board::water(const std::string& name) {
    const std::lock_guard lock(mutex_);
    const auto plant = plants_.find(name);
    if (plant == plants_.end()) {
        throw HttpError(404, "there is no such plant");
    }
    plant->second.watered = std::time(nullptr);
    publish();
}

/// What a client sends: {"days": 14}.
struct Days {
    int days;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Days, days)

void addRoutes(vireo::App& app, Board& board, const Settings& settings) {
    const vireo::Sessions sessions(vireo::SessionOptions(settings.key));
    app.use(vireo::securityHeaders()).use(vireo::crossOriginProtection()).use(sessions.middleware()).maxBody(65536);
    app.files("/", settings.page);
    app.health("/health");

    vireo::Group door = app.group("").use(vireo::rateLimit(10, 1min));
    door.post("/login", [sessions, password = settings.password](Request& request, Response& response) {
        if (!vireo::isSameText(request.form()["password"], password)) {
            throw HttpError(403, "another password");
        }
        sessions.of(request).clear(); // whatever was there before the password
        sessions.of(request).set("user", "home");
        response.redirect("/");
    });

    vireo::Group home = app.group("").before([sessions](Request& request, Response& response) {
        if (sessions.of(request).get("user").empty()) {
            response.error(401, "log in first");
        }
    });
    home.metrics("/metrics");
    const std::string pictures = settings.data + "/pictures";
    home.files("/pictures", pictures);
    home.post("/plants/{name}/picture",
              [&board, pictures](Request& request, Response& response) {
                  const std::string& name = request.path("name");
                  board.find(name); // or 404
                  request.form().file("picture").keepAs(pictures + "/" + name + ".jpg");
                  response.redirect("/");
              })
        .maxBody(5000000);
    home.get("/events", [&board](Request&, Response& response) { response.events(board.changes()); });
    home.get("/plants", [&board](Request&, Response& response) { response.json(board.all()); });
    home.get("/plants/{name}",
             [&board](Request& request, Response& response) { response.json(board.find(request.path("name"))); });
    home.put("/plants/{name}", [&board](Request& request, Response& response) {
        board.put(request.path("name"), vireo::readJson<Days>(request).days);
        response.empty();
    });
    home.post("/plants/{name}/water", [&board](Request& request, Response& response) {
        board.water(request.path("name"));
        response.empty();
    });
    home.post("/away", [&board](Request& request, Response& response) {
        const int away = vireo::readJson<Days>(request).days;
        vireo::Json waterings = vireo::Json::object();
        for (const auto& [name, plant] : board.all()) {
            waterings[name] = away / plant.days;
        }
        response.json(waterings);
    });
}
