#include <vireo/app.h>
#include <vireo/app/Json.h>

#include <map>
#include <string>

using vireo::Request;
using vireo::Response;

/// What a client sends: {"days": 14}.
struct Days {
    int days;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Days, days)

int main() {
    const std::map<std::string, int> plants{{"cactus", 30}, {"fern", 3}}; // wants water every so many days
    vireo::App app;
    app.get("/plants", [&plants](Request&, Response& response) { response.json(plants); });
    app.get("/plants/{name}", [&plants](Request& request, Response& response) {
        const auto plant = plants.find(request.path("name"));
        if (plant == plants.end()) {
            throw vireo::HttpError(404, "there is no such plant");
        }
        response.json({{"name", plant->first}, {"days", plant->second}});
    });
    app.post("/away", [&plants](Request& request, Response& response) {
        const int away = vireo::readJson<Days>(request).days;
        vireo::Json waterings;
        for (const auto& [name, days] : plants) {
            waterings[name] = away / days;
        }
        response.json(waterings);
    });
    return app.run({.port = 8181});
}
