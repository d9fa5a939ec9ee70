#include "integration/ServerTest.h"
#include "integration/observing_example.h"

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

// The example of docs/observing.md, and it works: a script holds that it is the same text.

namespace vireotest {
namespace {

using testing::HasSubstr;

using ObservingExample = ServerTest;

TEST_F(ObservingExample, CountsAndLogsWhatAServerDoes) {
    const auto metrics = std::make_shared<ExchangeMetrics>();
    const auto cut = std::make_shared<CutExchanges>();
    const std::filesystem::path file =
        std::filesystem::temp_directory_path() / ("observing-example-" + std::to_string(currentProcessId()));
    std::filesystem::remove(file); // of a process that was killed
    {
        Behaviour behaviour;
        behaviour.inlineHandler = [](TestRequest& request) {
            if (request.getOriginalRequestUrl() == "/fails") {
                throw std::runtime_error("as the test wants it");
            }
            request.reply("fine");
        };
        TestServer server(std::move(behaviour), TestServer::parametersOfTests(),
                          observed(metrics, std::make_shared<AccessLog>(AccessLog::Format::Json, file), cut));
        EXPECT_EQ(server.connect().exchange(get("/works")).status, 200);
        EXPECT_EQ(server.connect().exchange(get("/fails")).status, 500);
        server.stop();
    }
    std::ostringstream lines;
    lines << std::ifstream(file).rdbuf();
    std::filesystem::remove(file);
    EXPECT_EQ(cut->count, 1);
    EXPECT_THAT(metrics->toOpenMetrics(), HasSubstr("vireo_exchange_responses_total{class=\"2xx\",code=\"200\"} 1\n"));
    EXPECT_THAT(lines.str(), HasSubstr("\"target\":\"/works\""));
    EXPECT_THAT(lines.str(), HasSubstr("\"ending\":\"failed\",\"reason\":\"internal error\""));
}

} // namespace
} // namespace vireotest
