// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/export.h"

#include <exception>

namespace vireo {

/// The client has gone, or the server ends the exchange: there is nobody to read from or to write to. Thrown by the
/// request's body and by streams; a handler lets it pass, and nothing is logged then.
class VIREO_APP_API ClientGone : public std::exception {
public:
    ClientGone() noexcept;
    /// Copies have nothing of their own.
    ///@{
    ClientGone(const ClientGone& other) noexcept;
    ClientGone& operator=(const ClientGone& other) noexcept;
    ///@}
    ~ClientGone() override;

    /// "the client has gone".
    const char* what() const noexcept override;
};

} // namespace vireo
