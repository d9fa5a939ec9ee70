// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

namespace ql::http {

class ExchangeRecord;

/// Is told of every exchange of a server: of those that were answered by the application or by the library, of those
/// that were refused or cut, and of upgrades. AccessLog and ExchangeMetrics are two.
class VIREO_API ExchangeObserver {
public:
    ExchangeObserver();
    virtual ~ExchangeObserver();
    ExchangeObserver(const ExchangeObserver&) = delete;
    ExchangeObserver& operator=(const ExchangeObserver&) = delete;

    /// An exchange has ended. Once for each, on a thread of the library's, mostly a daemon thread, with none of the
    /// library's locks held; several calls may overlap.
    ///
    /// All other connections of that thread wait meanwhile: be quick. It must not start, stop or destroy the server,
    /// nor take a lock that is held by whoever does: stopping waits for this call. The application may have deleted
    /// the request already.
    ///
    /// What it throws is logged and dropped.
    /// @param record may be copied, to be kept longer than the call lasts.
    virtual void onExchange(const ExchangeRecord& record) = 0;
};

} // namespace ql::http
