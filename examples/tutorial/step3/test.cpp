#include "plants.h"

#include <vireo/app/TestClient.h>

#include <iostream>

int main() {
    int failed = 0;
    const auto check = [&failed](const char* what, bool isRight) {
        std::cout << (isRight ? "ok: " : "FAILED: ") << what << "\n";
        failed += isRight ? 0 : 1;
    };
    Board board;
    vireo::App app;
    addRoutes(app, board);
    vireo::TestClient client(app);

    check("no plants at first", client.get("/plants").body() == "{}");
    check("a plant is put up", client.put("/plants/fern", R"({"days": 3})").status() == 204);
    check("it is there", client.get("/plants/fern").body() == R"({"days":3,"watered":0})");
    check("it is watered", client.post("/plants/fern/water").status() == 204 && board.find("fern").watered > 0);
    check("what is not there cannot be", client.post("/plants/palm/water").status() == 404);
    check("days are a number", client.put("/plants/palm", R"({"days": "few"})").status() == 400);
    check("and there is one at least", client.put("/plants/palm", R"({"days": 0})").status() == 400);
    check("who is away", client.post("/away", R"({"days": 14})").body() == R"({"fern":4})");
    return failed;
}
