#include "app/sockets/RoomLink.h"

#include "frame/ExceptionLog.h"
#include "frame/InvalidArgument.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlRandomUtils.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace vireo {

RoomBus::RoomBus() = default;
RoomBus::~RoomBus() = default;

namespace impl {

RoomLink::RoomLink(std::unique_ptr<RoomBus> bus, Deliver deliver) : bus_(std::move(bus)), deliver_(std::move(deliver)) {
    if (!bus_) {
        ql::impl::throwInvalidArgument("rooms of several processes take a bus");
    }
    qlRandomUtils::Rand(self_.data(), self_.size());
    bus_->start([this](std::string_view bytes) { receive(bytes); });
}

RoomLink::~RoomLink() {
    bus_->stop();
}

std::string RoomLink::frameOf(std::string_view room, bool isBinary, std::string_view message) const {
    return writeRoomFrame({self_, 0, isBinary, room, message});
}

void RoomLink::publish(std::string frame) noexcept {
    const qlMutexLocker lock(sending_);
    setRoomFrameNumber(frame, ++lastNumber_);
    (bus_->publish(frame) ? published_ : refused_).fetch_add(1, std::memory_order_relaxed);
}

RoomTraffic RoomLink::traffic() const {
    return {published_.load(std::memory_order_relaxed), refused_.load(std::memory_order_relaxed),
            received_.load(std::memory_order_relaxed), missed_.load(std::memory_order_relaxed),
            malformed_.load(std::memory_order_relaxed)};
}

void RoomLink::receive(std::string_view bytes) noexcept {
    const std::optional<RoomFrame> frame = readRoomFrame(bytes);
    if (!frame) {
        tellMalformed();
        return;
    }
    if (frame->origin == self_) {
        return;
    }
    try {
        const qlMutexLocker lock(receiving_);
        if (isNews(*frame)) {
            received_.fetch_add(1, std::memory_order_relaxed);
            deliver_(*frame);
        }
    } catch (const std::invalid_argument&) {
        tellMalformed(); // a text that is not UTF-8
    } catch (...) {
        ql::impl::logCurrentException("a message of another process", "app");
    }
}

void RoomLink::tellMalformed() noexcept {
    if (malformed_.fetch_add(1, std::memory_order_relaxed) == 0) {
        qlLogObject(qlLogType::Failure, "app") << "what came for rooms is no message of this version, and was dropped";
    }
}

bool RoomLink::isNews(const RoomFrame& frame) {
    const auto [found, isNew] = origins_.try_emplace(frame.origin);
    Origin& origin = found->second;
    if (!isNew && frame.number <= origin.number) {
        return false;
    }
    if (const std::uint64_t gap = isNew ? 0 : frame.number - origin.number - 1; gap > 0) {
        missed_.fetch_add(gap, std::memory_order_relaxed);
        qlLogObject(qlLogType::Failure, "app") << gap << " messages of another process for rooms did not come";
    }
    origin = {frame.number, ++heard_};
    if (origins_.size() > MostOrigins) {
        forgetOldest();
    }
    return true;
}

void RoomLink::forgetOldest() {
    origins_.erase(std::min_element(origins_.begin(), origins_.end(), [](const auto& one, const auto& other) {
        return one.second.heardAt < other.second.heardAt;
    }));
}

} // namespace impl

} // namespace vireo
