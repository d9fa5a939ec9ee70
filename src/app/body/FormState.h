// SPDX-License-Identifier: MIT
#pragma once

#include "app/body/FormReader.h"
#include "app/body/TemporaryFile.h"
#include "vireo/app/Form.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vireo::impl {

/// What FormOptions say.
struct FormLimits {
    static const FormLimits& of(const FormOptions& options) { return *options.limits_; }

    std::size_t maxFields = 1000;
    std::uint64_t maxFieldBytes = 1048576;
    std::size_t maxFiles = 100;
    /// None: the body's limit holds alone.
    std::optional<std::uint64_t> maxFileBytes{};
    std::string directory{};
};

struct FormFileState {
    FormFileState(PartHead partHead, const std::string& directory)
        : head(std::move(partHead)), file(directory, TemporaryFile::Readers::Owner) {}

    static FormFile make(std::unique_ptr<FormFileState> state) { return FormFile(std::move(state)); }

    const PartHead head;
    TemporaryFile file;
};

struct FormState {
    static std::unique_ptr<Form> make(std::unique_ptr<FormState> state) {
        return std::unique_ptr<Form>(new Form(std::move(state)));
    }

    std::vector<FormField> fields;
    std::vector<FormFile> files;
};

/// Reads a form to its end.
/// @throws what FormPart::read() throws, HttpError 413 beyond a limit, std::system_error for a disk that is full.
std::unique_ptr<Form> readForm(FormReader& reader, const FormLimits& limits);

} // namespace vireo::impl
