#include "plants.h"

int main() {
    Board board;
    vireo::App app; // last: it goes before what its handlers refer to
    addRoutes(app, board);
    return app.run({.port = 8181});
}
