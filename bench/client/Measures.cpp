#include "client/Measures.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace bench {

void Latencies::add(Clock::duration duration) {
    us_.push_back(std::chrono::duration<double, std::micro>(duration).count());
}

double Latencies::percentile(double share) {
    if (us_.empty()) {
        return 0;
    }
    const double rank = std::ceil(share * static_cast<double>(us_.size()));
    const std::size_t index = std::min(us_.size() - 1, static_cast<std::size_t>(std::max(rank, 1.0)) - 1);
    std::nth_element(us_.begin(), us_.begin() + static_cast<std::ptrdiff_t>(index), us_.end());
    return us_[index];
}

void printResult(const std::vector<std::pair<std::string, double>>& values) {
    const char* separator = "{";
    for (const auto& [name, value] : values) {
        std::printf("%s\"%s\": %.9g", separator, name.c_str(), value);
        separator = ", ";
    }
    std::printf("}\n");
    std::fflush(stdout);
}

} // namespace bench
