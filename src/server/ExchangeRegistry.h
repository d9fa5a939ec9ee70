// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "vireo/support/qlMutex.h"

#include <cstdint>
#include <memory>
#include <unordered_set>

namespace ql::impl {

class DeadlineMarks;
class Exchange;

/// The exchanges of one run of a server, which must not stop its engine with a connection suspended.
class ExchangeRegistry {
public:
    struct Counts {
        std::uint64_t living = 0;
        std::uint64_t ended = 0;
    };

    /// @param uploadWindowBytes what of a body is kept for its reader.
    explicit ExchangeRegistry(std::uint64_t uploadWindowBytes) : uploadWindowBytes_(uploadWindowBytes) {}
    ~ExchangeRegistry();
    ExchangeRegistry(const ExchangeRegistry&) = delete;
    ExchangeRegistry& operator=(const ExchangeRegistry&) = delete;

    std::uint64_t uploadWindowBytes() const { return uploadWindowBytes_; }

    /// Makes the exchange of a request whose head has come. Daemon threads.
    /// @param bodyBytes the body's length as the head announces it.
    /// @param marks the connection's.
    /// @throws std::bad_alloc
    std::shared_ptr<Exchange> begin(EngineConnection connection, std::uint64_t bodyBytes, DeadlineMarks& marks)
        QL_EXCLUDES(mutex_);

    /// The exchange is completed. Daemon threads, under no lock.
    void end(const std::shared_ptr<Exchange>& exchange) noexcept QL_EXCLUDES(mutex_);

    /// Any thread.
    Counts counts() QL_EXCLUDES(mutex_);

    /// From now on no connection is suspended, neither of the exchanges that live nor of later ones. Under no lock of a
    /// device, before the engine is stopped.
    void finishAll() noexcept QL_EXCLUDES(mutex_);

private:
    const std::uint64_t uploadWindowBytes_;
    qlMutex mutex_;
    std::unordered_set<std::shared_ptr<Exchange>> exchanges_ QL_GUARDED_BY(mutex_);
    std::uint64_t ended_ QL_GUARDED_BY(mutex_) = 0;
    bool isClosed_ QL_GUARDED_BY(mutex_) = false;
};

} // namespace ql::impl
