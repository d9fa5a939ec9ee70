// What the head of a request costs.
#include "micro/MicroRequest.h"
#include "vireo/support/HttpUrl.h"

#include <benchmark/benchmark.h>

#include <array>
#include <string>
#include <utility>

namespace {

using Field = std::pair<const char*, const char*>;

constexpr std::array<Field, 12> Headers{{
    {"Host", "127.0.0.1"},
    {"User-Agent",
     "Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) Chrome/126.0.0.0 Safari/537.36"},
    {"Accept", "text/html,application/xhtml+xml,application/xml;q=0.9,image/avif,image/webp,*/*;q=0.8"},
    {"Accept-Language", "en-GB,en;q=0.9,de;q=0.8"},
    {"Accept-Encoding", "gzip, deflate, br"},
    {"Connection", "keep-alive"},
    {"Referer", "http://127.0.0.1/search"},
    {"Cookie", "session=2c26b46b68ffc68ff99b453c1d304134; theme=dark; consent=yes"},
    {"Upgrade-Insecure-Requests", "1"},
    {"Cache-Control", "max-age=0"},
    {"Sec-Fetch-Mode", "navigate"},
    {"Sec-Fetch-Site", "same-origin"},
}};

constexpr std::array<Field, 3> Cookies{{
    {"session", "2c26b46b68ffc68ff99b453c1d304134"},
    {"theme", "dark"},
    {"consent", "yes"},
}};

constexpr std::array<Field, 6> Arguments{{
    {"q", "embeddable server"},
    {"page", "2"},
    {"sort", "date"},
    {"lang", "en"},
    {"filter", "a&b"},
    {"session", "8f14e45fceea167a"},
}};

constexpr const char* Target = "/?q=embeddable+server&page=2&sort=date&lang=en&filter=a%26b&session=8f14e45fceea167a";

void addHeaders(ql::HttpBaseRequest& request) {
    for (const auto& [name, value] : Headers) {
        request.addHeader(name, value);
    }
}

void addCookies(ql::HttpBaseRequest& request) {
    for (const auto& [name, value] : Cookies) {
        request.addCookie(name, value);
    }
}

void addArguments(ql::HttpBaseRequest& request) {
    for (const auto& [name, value] : Arguments) {
        request.addQueryParameter(name, value);
    }
}

/// The base of the next four: a request made and destroyed.
void makeRequest(benchmark::State& state) {
    bench::MicroServer server;
    for (auto _ : state) {
        bench::MicroRequest request(server);
        benchmark::DoNotOptimize(request);
    }
}
BENCHMARK(makeRequest);

template <void (*Add)(ql::HttpBaseRequest&)>
void takeValues(benchmark::State& state) {
    bench::MicroServer server;
    for (auto _ : state) {
        bench::MicroRequest request(server);
        Add(request);
        benchmark::DoNotOptimize(request);
    }
}
BENCHMARK_TEMPLATE(takeValues, addHeaders)->Name("take12Headers");
BENCHMARK_TEMPLATE(takeValues, addCookies)->Name("take3Cookies");
BENCHMARK_TEMPLATE(takeValues, addArguments)->Name("take6QueryArguments");

void takeUrl(ql::HttpBaseRequest& request) {
    request.setOriginalFullUrl(std::string(Target));
}
BENCHMARK_TEMPLATE(takeValues, takeUrl)->Name("takeUrl");

void takeWholeHead(ql::HttpBaseRequest& request) {
    addHeaders(request);
    addCookies(request);
    addArguments(request);
    takeUrl(request);
}
BENCHMARK_TEMPLATE(takeValues, takeWholeHead)->Name("takeWholeHead");

void parseUrl(benchmark::State& state) {
    const std::string text = std::string("http://127.0.0.1:80") + Target;
    for (auto _ : state) {
        ql::http::HttpUrl url;
        benchmark::DoNotOptimize(url.fromEncodedUtf8String(text, nullptr, true, 65536));
    }
}
BENCHMARK(parseUrl);

} // namespace
