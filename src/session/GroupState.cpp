#include "session/GroupState.h"

#include "frame/ExceptionLog.h"
#include "session/SessionCore.h"
#include "session/SharedMessage.h"

#include <algorithm>

namespace ql::impl {

namespace {

bool isClosed(const GroupState::Member& member) {
    return !member->isOpen();
}

bool sendTo(SessionCore& member, SharedMessage& message) noexcept {
    try {
        return member.sendAsOneOfMany(message) == http::WebSocketSend::Queued;
    } catch (...) {
        logCurrentException("a message to a WebSocketGroup");
        return false;
    }
}

} // namespace

/// Goes through a group's list.
class GroupState::Reading {
public:
    explicit Reading(GroupState& group) : group_(group) {
        const qlMutexLocker lock(group_.mutex_);
        members_ = group_.members_;
        ++group_.readers_;
    }
    ~Reading() {
        const qlMutexLocker lock(group_.mutex_);
        if (members_ == group_.members_) {
            --group_.readers_;
        }
    }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

    const Members& members() const { return *members_; }

private:
    GroupState& group_;
    std::shared_ptr<const Members> members_;
};

bool GroupState::add(const Member& member) {
    const qlMutexLocker lock(mutex_);
    if (!member || isClosed(member) || std::ranges::find(*members_, member) != members_->end()) {
        return false;
    }
    Members& members = changeable();
    if (members.size() == members.capacity()) {
        std::erase_if(members, isClosed);
        // Room for as many again, so that looking for the closed ones is rare.
        members.reserve(2 * members.size() + 1);
    }
    members.push_back(member);
    return true;
}

bool GroupState::remove(const Member& member) {
    const qlMutexLocker lock(mutex_);
    if (std::ranges::find(*members_, member) == members_->end()) {
        return false;
    }
    std::erase(changeable(), member);
    return true;
}

std::size_t GroupState::size() const {
    const qlMutexLocker lock(mutex_);
    return members_->size() - static_cast<std::size_t>(std::ranges::count_if(*members_, isClosed));
}

std::size_t GroupState::send(SharedMessage& message, const Member& except) {
    std::size_t taken = 0;
    std::size_t closed = 0;
    std::size_t all = 0;
    {
        const Reading reading(*this);
        all = reading.members().size();
        for (const Member& member : reading.members()) {
            if (member == except) {
                continue;
            }
            if (sendTo(*member, message)) {
                ++taken;
            } else if (isClosed(member)) {
                ++closed;
            }
        }
    }
    if (closed > all / 2) {
        forgetClosed();
    }
    return taken;
}

void GroupState::forgetClosed() noexcept {
    try {
        const qlMutexLocker lock(mutex_);
        std::erase_if(changeable(), isClosed);
    } catch (...) {
        // They go later.
        logCurrentException("a WebSocketGroup");
    }
}

GroupState::Members& GroupState::changeable() {
    if (readers_ > 0) {
        members_ = std::make_shared<Members>(*members_);
        readers_ = 0;
    }
    return *members_;
}

} // namespace ql::impl
