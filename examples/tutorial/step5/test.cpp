#include "plants.h"

#include <vireo/app/TestClient.h>

#include <filesystem>
#include <iostream>

int main(int, char** argv) {
    int failed = 0;
    const auto check = [&failed](const char* what, bool isRight) {
        std::cout << (isRight ? "ok: " : "FAILED: ") << what << "\n";
        failed += isRight ? 0 : 1;
    };
    Board board;
    vireo::App app;
    const std::string data = argv[0] + std::string(".data");
    std::filesystem::create_directories(data + "/pictures");
    addRoutes(app, board, data, data);
    vireo::TestClient client(app);
    vireo::TestEvents events = client.events("/events");

    check("no plants at first", client.get("/plants").body() == "{}");
    check("and who listens is told so", events.next() && events.data() == "{}");
    check("a plant is put up", client.put("/plants/fern", R"({"days": 3})").status() == 204);
    check("which is told, too", events.next() && events.data() == R"({"fern":{"days":3,"watered":0}})");
    check("it is there", client.get("/plants/fern").body() == R"({"days":3,"watered":0})");
    check("it is watered", client.post("/plants/fern/water").status() == 204 && board.find("fern").watered > 0);
    check("what is not there cannot be", client.post("/plants/palm/water").status() == 404);
    check("days are a number", client.put("/plants/palm", R"({"days": "few"})").status() == 400);
    check("and there is one at least", client.put("/plants/palm", R"({"days": 0})").status() == 400);
    check("who is away", client.post("/away", R"({"days": 14})").body() == R"({"fern":4})");

    const auto picture = vireo::TestRequest("POST", "/plants/fern/picture").file("picture", "a.jpg", "JPEG");
    check("it gets a picture", client.send(picture).status() == 303);
    check("which is served", client.get("/pictures/fern.jpg").body() == "JPEG");
    check("a name is no path", client.put("/plants/fern%2Foak", R"({"days": 3})").status() == 400);
    std::filesystem::remove_all(data);
    return failed;
}
