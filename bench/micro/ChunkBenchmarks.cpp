// What body bytes cost on their way through the chunk lists, without threads and sockets.
#include "micro/MicroRequest.h"
#include "streams/ChunkList.h"
#include "support/Pattern.h"
#include "vireo/support/qlThread.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

namespace {

constexpr std::int64_t ListBytes = 1048576;

void setBytes(benchmark::State& state, std::int64_t perIteration) {
    state.SetBytesProcessed(state.iterations() * perIteration);
}

/// Pieces of the given size until a list holds 1 MiB.
void appendChunks(benchmark::State& state) {
    const std::uint64_t piece = static_cast<std::uint64_t>(state.range(0));
    for (auto _ : state) {
        ql::impl::ChunkList chunks;
        std::uint64_t count = 0;
        while (count < ListBytes) {
            ql::impl::appendToChunks(chunks, bench::Pattern::at(count), piece, count);
        }
        benchmark::DoNotOptimize(chunks);
    }
    setBytes(state, ListBytes);
}
BENCHMARK(appendChunks)->Arg(1024)->Arg(16384)->Arg(65536);

/// The application writes, the daemon takes, on one thread: what a hand-over costs beside the wait for it.
void handOverResponse(benchmark::State& state) {
    const std::uint64_t piece = static_cast<std::uint64_t>(state.range(0));
    bench::MicroServer server;
    bench::MicroRequest request(server);
    request.workerThreadStartHandling(qlThread::CurrentThreadId());
    ql::HttpResponseDevice& device = request.editInternalResponseDevice();
    std::vector<char> taken(65536);
    for (auto _ : state) {
        for (std::uint64_t written = 0; written < taken.size(); written += piece) {
            device.writeBytes(bench::Pattern::at(written), piece);
        }
        bool end = false;
        bool noMore = false;
        benchmark::DoNotOptimize(device.sendChunksThreadSafe(taken.data(), taken.size(), end, noMore));
    }
    setBytes(state, static_cast<std::int64_t>(taken.size()));
}
BENCHMARK(handOverResponse)->Arg(1024)->Arg(16384)->Arg(65536);

/// The daemon feeds, the application reads, on one thread.
void handOverUpload(benchmark::State& state) {
    const std::uint64_t piece = static_cast<std::uint64_t>(state.range(0));
    bench::MicroServer server;
    bench::MicroRequest request(server);
    ql::HttpReceiveDevice& device = request.editFeedDevice();
    std::vector<char> taken(65536);
    for (auto _ : state) {
        for (std::uint64_t fed = 0; fed < taken.size(); fed += piece) {
            const qlMutexLocker locker(device.getLock());
            device.writeBytes(bench::Pattern::at(fed), piece);
        }
        benchmark::DoNotOptimize(device.readBytes(taken.data(), taken.size()));
    }
    setBytes(state, static_cast<std::int64_t>(taken.size()));
}
BENCHMARK(handOverUpload)->Arg(1024)->Arg(16384)->Arg(65536);

} // namespace
