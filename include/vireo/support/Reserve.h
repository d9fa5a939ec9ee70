// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

namespace ql::impl {

/// What a later version of the library keeps beside the declared fields of a class. A class holds a pointer to it, so
/// that its size stays what it is; null while there is nothing to keep. Of no use to applications.
struct VIREO_API Reserve {
    Reserve();
    virtual ~Reserve();
    Reserve(const Reserve&) = delete;
    Reserve& operator=(const Reserve&) = delete;
};

} // namespace ql::impl
