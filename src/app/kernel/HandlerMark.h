// SPDX-License-Identifier: MIT
#pragma once

namespace vireo::impl {

struct Registration;

/// Marks the calling thread as one that runs a function that an App was given, as long as it lives: such a thread must
/// not wait for the end of what it is a part of. Marks nest.
class HandlerMark {
public:
    /// @param app whose function it is: what stands for that App, and lives as long as this.
    explicit HandlerMark(const Registration& app);
    ~HandlerMark();
    HandlerMark(const HandlerMark&) = delete;
    HandlerMark& operator=(const HandlerMark&) = delete;

    /// Whether the calling thread runs a function of that App's.
    static bool isSet(const Registration& app);
    /// Whether it runs one of any App's.
    static bool isSet();

private:
    const Registration& app_;
    const HandlerMark* const outer_;
};

} // namespace vireo::impl
