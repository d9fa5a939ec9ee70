#include "engine/EngineServer.h"
#include "support/Program.h"

#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
    const bench::ServerOptions options = bench::ServerOptions::parse(argc, argv, {"inline", "maps", "handover"});
    try {
        const bench::StopSignal stop;
        bench::raiseDescriptorLimit();
        const bench::EngineServer server(options);
        stop.wait();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench-engine: %s\n", error.what());
        return 1;
    }
}
