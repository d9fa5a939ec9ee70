#include "session/pool/MemberTask.h"

#include "frame/ExceptionLog.h"
#include "vireo/WebSocket.h"
#include "websocket/pool/PoolMember.h"
#include "websocket/pool/PoolState.h"

#include <utility>

namespace ql::impl {

std::shared_ptr<MemberTask> MemberTask::make(Connection& connection) {
    auto task = std::make_shared<MemberTask>();
    task->connection_ = std::move(connection);
    memberOf(task->connection_).setPollWaker(task);
    return task;
}

MemberTask::MemberTask() = default;

MemberTask::~MemberTask() = default;

MemberTask::Connection MemberTask::takeBack() {
    memberOf(connection_).setPollWaker(nullptr);
    return std::move(connection_);
}

std::uint64_t MemberTask::getSocket() const {
    return memberOf(connection_).getSocket();
}

TurnResult MemberTask::serve(const Turn& turn) noexcept {
    PoolMember& member = memberOf(connection_);
    if (turn.hasInput()) {
        member.noteReadable();
    }
    try {
        for (unsigned frames = 0; frames < TurnMessages; ++frames) {
            if (!member.serve()) {
                return {TurnResult::Next::Leave};
            }
            if (!member.isReadPending()) {
                return {TurnResult::Next::Wait, true, member.isWritePending()};
            }
        }
        return {TurnResult::Next::Again};
    } catch (...) {
        logCurrentException("a WebSocket");
        return {TurnResult::Next::Leave};
    }
}

void MemberTask::left() noexcept {
    const Connection ended = takeBack();
    memberOf(ended).close();
}

} // namespace ql::impl
