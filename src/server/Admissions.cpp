#include "server/Admissions.h"

#include <algorithm>

namespace ql::impl {

std::optional<std::size_t> Admissions::admit(std::uint64_t socket, std::uint32_t address) {
    const qlMutexLocker locker(mutex_);
    remove(socket);
    if (!hasRoom(address)) {
        return std::nullopt;
    }
    const auto least = std::ranges::min_element(loads_);
    const auto engine = static_cast<std::size_t>(least - loads_.begin());
    std::size_t& fromThere = addresses_[address];
    try {
        entries_.emplace(socket, Entry{address, engine, Stage::Waiting});
    } catch (...) {
        if (fromThere == 0) {
            addresses_.erase(address);
        }
        throw;
    }
    ++fromThere;
    ++*least;
    ++countOf(Stage::Waiting);
    return engine;
}

void Admissions::begin(std::uint64_t socket) noexcept {
    setStage(socket, Stage::Http);
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

bool Admissions::hasRoom(std::uint32_t address) const {
    if (entries_.size() >= limits_.connections) {
        return false;
    }
    const auto found = addresses_.find(address);
    return (found == addresses_.end() ? 0 : found->second) < limits_.perAddress;
}

void Admissions::setStage(std::uint64_t socket, Stage stage) noexcept {
    const qlMutexLocker locker(mutex_);
    const auto found = entries_.find(socket);
    if (found == entries_.end()) {
        return;
    }
    --countOf(found->second.stage);
    found->second.stage = stage;
    ++countOf(stage);
}

void Admissions::remove(std::uint64_t socket) {
    const auto found = entries_.find(socket);
    if (found == entries_.end()) {
        return;
    }
    const Entry entry = found->second;
    entries_.erase(found);
    --loads_[entry.engine];
    --countOf(entry.stage);
    if (entry.stage == Stage::Upgraded) {
        ++upgradesEnded_;
    }
    const auto fromThere = addresses_.find(entry.address);
    if (fromThere != addresses_.end() && --fromThere->second == 0) {
        addresses_.erase(fromThere);
    }
}

} // namespace ql::impl
