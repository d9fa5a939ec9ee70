#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

inline double seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

/// Times of many like events.
class Latencies {
public:
    void add(Clock::duration duration);
    std::size_t count() const { return us_.size(); }
    /// In microseconds; 0 when there are none.
    /// @param share 0 to 1; 1 is the longest.
    double percentile(double share);

private:
    std::vector<double> us_;
};

/// Prints one JSON object with the given numbers.
void printResult(const std::vector<std::pair<std::string, double>>& values);

} // namespace bench
