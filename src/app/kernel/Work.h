// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

namespace vireo::impl {

class Service;
struct Endpoint;

/// What of a run an exchange needs, as long as it is not answered: it lies in one place at a time.
struct Work {
    std::shared_ptr<Service> service;
    std::shared_ptr<const Endpoint> endpoint;
};

} // namespace vireo::impl
