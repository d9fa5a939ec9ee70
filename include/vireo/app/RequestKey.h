// SPDX-License-Identifier: MIT
#pragma once

namespace vireo {

/// Names a value of your own that a request carries, such as the user whom a middleware has found:
///
///     inline const vireo::RequestKey<User> user;     // once, where all who use it see it
///     request[user] = findUser(request);
///
/// Keys are told apart by their addresses: a program and a shared library that both define one have two. A value dies
/// with its request, as a rule on the daemon thread, that of a listener to an EventChannel on the one thread that
/// serves all of them: so its destructor must not wait for anything, nor call App::stop(). A Later does not belong into
/// one: it would keep its own request for ever.
template <class T>
class RequestKey {
public:
    constexpr RequestKey() noexcept : self_(this) {}
    RequestKey(const RequestKey&) = delete;
    RequestKey& operator=(const RequestKey&) = delete;

private:
    /// Makes each key's bytes its own, so that no linker puts two keys into one place.
    const RequestKey* self_;
};

} // namespace vireo
