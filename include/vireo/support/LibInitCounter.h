// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"
#include "vireo/support/qlMutex.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <string>

namespace ql::impl {

/// Counts how many users a library has in this process. Every member may be called from any thread.
class VIREO_API LibInitCounter {
public:
    /// @param name the library's name; must outlive the counter (a literal does).
    /// @param counted true: each increment wants a decrement of its own. false: the counter only knows on and off.
    LibInitCounter(const char* name, bool counted);

    /// @return true on the first increment only, when the library is to be brought up.
    bool incrementInitCounter();

    /// @return true when the count has just come back to 0, when the library is to be taken down. At 0 it stays 0
    /// and the answer is false.
    bool decrementInitCounter();

    /// A snapshot.
    bool isInitialized() const;

    /// The library's name.
    const char* getName() const { return name_; }

private:
    const char* const name_;
    const bool counted_;
    qlMutex mutex_;
    /// Written under mutex_; read alone by isInitialized(), which promises no more than a snapshot.
    std::atomic<std::uint32_t> count_{0};
};

/// Adds a component to the process-wide list of third-party versions, or replaces its version. Any thread.
VIREO_API void RegisterThirdPartyLibVersionInfo(const char* name, const char* version);

/// Removes a component from that list; an unknown name is ignored. Any thread.
VIREO_API void UnRegisterThirdPartyLibVersionInfo(const char* name);

/// A copy of that list, from name to version. Any thread.
VIREO_API std::map<std::string, std::string> GetThirdPartyLibVersionInfos();

} // namespace ql::impl
