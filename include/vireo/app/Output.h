// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/export.h"

#include <concepts>
#include <string>
#include <string_view>
#include <type_traits>

namespace vireo {

namespace impl {
class OutputState;
}

/// A body that is sent as it is written: what Response::stream() gives to its function. That function's thread alone.
class Output {
public:
    /// For the library.
    explicit Output(impl::OutputState& state) : state_(state) {}
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    /// Appends. Waits for the client while more than 256 KiB are not taken. Small pieces gather until there are 64 KiB:
    /// what the client is to see at once wants a flush().
    ///
    /// Throws ClientGone when nobody takes it any more.
    VIREO_APP_API Output& write(std::string_view bytes);
    /// Appends, as write() does.
    Output& operator<<(std::string_view bytes) { return write(bytes); }
    /// Appends a char as it is, any other integer in decimal.
    template <std::integral Number>
    Output& operator<<(Number number) {
        if constexpr (std::is_same_v<Number, char>) {
            return write(std::string_view(&number, 1));
        } else {
            return write(std::to_string(number));
        }
    }
    /// Sends what has gathered.
    VIREO_APP_API void flush();
    /// Whether nobody takes it any more.
    VIREO_APP_API bool isGone() const;

private:
    impl::OutputState& state_;
};

} // namespace vireo
