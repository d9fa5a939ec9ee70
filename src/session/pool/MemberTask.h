// SPDX-License-Identifier: MIT
#pragma once

#include "session/pool/PoolTask.h"
#include "websocket/pool/PoolListener.h"

#include <cstdint>
#include <memory>

namespace ql::http {
class WebSocket;
} // namespace ql::http

namespace ql::impl {

/// A WebSocket as a task. It owns the connection and is what that knows of the pool.
class MemberTask final : public PoolTask, public PoolListener {
public:
    using Connection = std::unique_ptr<http::WebSocket>;

    /// @param connection is there, and left empty. What is written to it is noted from now on. @throws std::bad_alloc
    static std::shared_ptr<MemberTask> make(Connection& connection);
    MemberTask();
    ~MemberTask() override;

    /// Of one that came into no pool.
    Connection takeBack();

    void noteWrite() override { schedule(); }
    void noteClose() override { letGoOfSocket(); }

private:
    std::uint64_t getSocket() const override;
    TurnResult serve(const Turn& turn) noexcept override;
    void left() noexcept override;
    void abandon() noexcept override { left(); }

    Connection connection_;
};

} // namespace ql::impl
