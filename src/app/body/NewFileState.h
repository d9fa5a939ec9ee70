// SPDX-License-Identifier: MIT
#pragma once

#include "app/body/TemporaryFile.h"
#include "vireo/app/NewFile.h"

#include <atomic>
#include <memory>
#include <string>
#include <utility>

namespace vireo::impl {

/// What has become of a body, for those who keep files of it and may outlive it.
struct BodyFate {
    std::atomic<bool> isCutShort{false};
};

/// What a NewFile has.
struct NewFileState {
    NewFileState(const std::string& directory, std::shared_ptr<const BodyFate> source)
        : file(directory, TemporaryFile::Readers::AsOthers), fate(std::move(source)) {}

    static NewFileState& of(NewFile& file) { return *file.state_; }

    TemporaryFile file;
    /// Of the body that it is made of; null for none.
    std::shared_ptr<const BodyFate> fate;
};

} // namespace vireo::impl
