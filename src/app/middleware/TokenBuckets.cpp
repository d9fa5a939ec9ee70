#include "app/middleware/TokenBuckets.h"

#include "app/middleware/Hmac.h"
#include "vireo/support/qlRandomUtils.h"

#include <algorithm>
#include <functional>

namespace vireo::impl {

namespace {

constexpr std::int64_t MicrosecondsPerMs = 1000;
constexpr std::size_t MaxClientsOfShard = TokenBuckets::MaxClients / TokenBuckets::Shards;
/// So many are looked at to find one that is nearly full.
constexpr std::size_t Sample = 16;

} // namespace

TokenBuckets::TokenBuckets(unsigned int requests, std::int64_t periodMs, unsigned int burst)
    : cost_((std::max)(std::int64_t{1}, periodMs * MicrosecondsPerMs / requests)),
      capacity_(cost_ * burst),
      key_(HmacBytes, '\0') {
    qlRandomUtils::Rand(key_.data(), key_.size());
}

std::int64_t TokenBuckets::take(const std::string& client, std::int64_t nowMs) {
    const std::int64_t now = nowMs * MicrosecondsPerMs;
    const std::size_t hash = std::hash<std::string>()(client);
    // The lowest bits choose the place within a shard.
    Shard& shard = shards_[(hash >> 16U) % Shards];
    const qlMutexLocker locker(shard.mutex);
    const auto found = shard.fullAt.find(client);
    const std::int64_t fullAt = (std::max)(now, found == shard.fullAt.end() ? now : found->second) + cost_;
    if (fullAt - now > capacity_) {
        return (fullAt - now - capacity_ + MicrosecondsPerMs - 1) / MicrosecondsPerMs;
    }
    if (found != shard.fullAt.end()) {
        found->second = fullAt;
        return 0;
    }
    if (shard.fullAt.size() >= MaxClientsOfShard) {
        shard.dropFullest();
    }
    shard.fullAt.emplace(client, fullAt);
    return 0;
}

std::string TokenBuckets::nameOf(std::string_view client) const {
    return hmacSha256(key_, client);
}

std::size_t TokenBuckets::size() const {
    std::size_t size = 0;
    for (const Shard& shard : shards_) {
        const qlMutexLocker locker(shard.mutex);
        size += shard.fullAt.size();
    }
    return size;
}

void TokenBuckets::Shard::dropFullest() {
    const Buckets::value_type* fullest = nullptr;
    for (std::size_t seen = 0; seen < Sample; ++cursor) {
        const std::size_t place = cursor % fullAt.bucket_count();
        for (auto client = fullAt.cbegin(place); client != fullAt.cend(place); ++client, ++seen) {
            if (fullest == nullptr || client->second < fullest->second) {
                fullest = &*client;
            }
        }
    }
    fullAt.erase(std::string(fullest->first));
}

} // namespace vireo::impl
