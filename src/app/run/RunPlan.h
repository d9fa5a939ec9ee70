// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/RunOptions.h"

namespace vireo::impl {

/// What RunSettings were given. In a program that is older or newer than the library its options are of another
/// layout, the settings are not.
struct RunPlan : RunOptions {};

} // namespace vireo::impl
