#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace vireotest {

/// Memory for reads, kept from one run to the next. Nobody may write behind what a read was given of it.
class Room {
public:
    /// @return where `size` bytes may go, until the next call.
    char* begin(std::size_t size) {
        if (memory_.size() <= size) {
            memory_.resize(size + 1);
        }
        end_ = size;
        memory_[end_] = Mark;
        return memory_.data();
    }

    std::string_view text(std::size_t size) const { return std::string_view(memory_.data(), size); }
    bool isKept() const { return memory_[end_] == Mark; }

private:
    static constexpr char Mark = '\x5A';

    std::vector<char> memory_;
    std::size_t end_ = 0;
};

} // namespace vireotest
