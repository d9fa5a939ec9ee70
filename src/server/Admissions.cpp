#include "server/Admissions.h"

#include "vireo/support/qlSystemUtils.h"

#include <algorithm>

namespace ql::impl {

std::optional<std::size_t> Admissions::admit(const Newcomer& newcomer, const Engines& engines) {
    const qlMutexLocker locker(mutex_);
    remove(newcomer.socket);
    if (!hasRoom(newcomer.address)) {
        return std::nullopt;
    }
    const auto first = loads_.begin() + static_cast<std::ptrdiff_t>(engines.first);
    const auto least = std::min_element(first, first + static_cast<std::ptrdiff_t>(engines.count));
    const auto engine = static_cast<std::size_t>(least - loads_.begin());
    if (newcomer.address) {
        ++addresses_[*newcomer.address];
    }
    try {
        entries_.emplace(newcomer.socket, Entry{newcomer.address, newcomer.listener, engine, Stage::Waiting});
    } catch (...) {
        forgetAddress(newcomer.address);
        throw;
    }
    ++*least;
    ++countOf(Stage::Waiting);
    return engine;
}

std::optional<std::size_t> Admissions::begin(std::uint64_t socket) noexcept {
    return setStage(socket, Stage::Http);
}

void Admissions::upgrade(std::uint64_t socket) noexcept {
    setStage(socket, Stage::Upgraded);
}

void Admissions::leave(std::uint64_t socket) noexcept {
    const qlMutexLocker locker(mutex_);
    remove(socket);
}

Admissions::Counts Admissions::counts() {
    const qlMutexLocker locker(mutex_);
    return {countOf(Stage::Waiting), countOf(Stage::Upgraded), upgradesEnded_};
}

void Admissions::waitForEngines(std::int64_t timeMs) {
    const std::int64_t endMs = qlSystemUtils::GetTimeBaseMs() + timeMs;
    const qlMutexLocker locker(mutex_);
    for (std::int64_t leftMs = timeMs; countOf(Stage::Waiting) != 0 && leftMs > 0;
         leftMs = endMs - qlSystemUtils::GetTimeBaseMs()) {
        noneWaits_.wait(&mutex_, static_cast<unsigned long>(leftMs));
    }
}

bool Admissions::hasRoom(std::optional<std::uint64_t> address) const {
    if (entries_.size() >= limits_.connections) {
        return false;
    }
    if (!address) {
        return true;
    }
    const auto found = addresses_.find(*address);
    return (found == addresses_.end() ? 0 : found->second) < limits_.perAddress;
}

std::optional<std::size_t> Admissions::setStage(std::uint64_t socket, Stage stage) noexcept {
    const qlMutexLocker locker(mutex_);
    const auto found = entries_.find(socket);
    if (found == entries_.end()) {
        return std::nullopt;
    }
    leaveStage(found->second.stage);
    found->second.stage = stage;
    ++countOf(stage);
    return found->second.listener;
}

void Admissions::remove(std::uint64_t socket) {
    const auto found = entries_.find(socket);
    if (found == entries_.end()) {
        return;
    }
    const Entry entry = found->second;
    entries_.erase(found);
    --loads_[entry.engine];
    leaveStage(entry.stage);
    if (entry.stage == Stage::Upgraded) {
        ++upgradesEnded_;
    }
    forgetAddress(entry.address);
}

void Admissions::leaveStage(Stage stage) {
    if (--countOf(stage) == 0 && stage == Stage::Waiting) {
        noneWaits_.wakeAll();
    }
}

void Admissions::forgetAddress(std::optional<std::uint64_t> address) {
    if (!address) {
        return;
    }
    const auto fromThere = addresses_.find(*address);
    if (fromThere != addresses_.end() && --fromThere->second == 0) {
        addresses_.erase(fromThere);
    }
}

} // namespace ql::impl
