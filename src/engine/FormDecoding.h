// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "engine/FormFilter.h"
#include "engine/PartGatherer.h"
#include "vireo/support/qlMutex.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

struct MHD_PostProcessor;

namespace ql::impl {

/// The decoding of one form's body by the engine, whose processor of it refers to the memory of the connection. So the
/// request shares it with the application's decoder, and ends it while that memory is there. Any thread.
class FormDecoding final : private FormTarget {
public:
    /// Of the request that is on the connection.
    /// @return null when its Content-Type names no form that the engine takes.
    /// @throws std::bad_alloc
    static std::shared_ptr<FormDecoding> Of(EngineConnection connection);

    ~FormDecoding() override;
    FormDecoding(const FormDecoding&) = delete;
    FormDecoding& operator=(const FormDecoding&) = delete;

    /// @return what it comes to; none when the form is malformed, for want of memory, or when the decoding has ended,
    /// be it by that.
    ///@{
    std::optional<std::vector<FormPiece>> decode(std::string_view body) QL_EXCLUDES(mutex_);
    std::optional<std::vector<FormPiece>> finish() QL_EXCLUDES(mutex_);
    ///@}

    /// Ends it; no more use is made of the connection.
    void end() noexcept QL_EXCLUDES(mutex_);

private:
    FormDecoding(EngineConnection connection, std::unique_ptr<FormFilter> filter, bool isMultipart);

    // Called by the filter, and by the engine, inside decode() and finish().
    bool pass(std::string_view bytes) override QL_REQUIRES(mutex_);
    void separate() override QL_REQUIRES(mutex_) { gatherer_.separate(); }
    bool add(const char* name, const char* fileName, const char* contentType, std::string_view bytes,
             std::uint64_t offset) noexcept QL_NO_THREAD_SAFETY_ANALYSIS;

    bool isUnderWay() const QL_EXCLUDES(mutex_);

    /// @return whether the engine has seen the end of the form.
    bool destroyProcessor() noexcept QL_REQUIRES(mutex_);

    friend struct FormCallback;

    mutable qlMutex mutex_;
    /// Null once it has ended.
    MHD_PostProcessor* processor_ QL_GUARDED_BY(mutex_);
    const std::unique_ptr<FormFilter> filter_;
    PartGatherer gatherer_ QL_GUARDED_BY(mutex_);
    /// What the engine still decodes, when it is ended, is for nobody.
    bool isGathering_ QL_GUARDED_BY(mutex_) = true;
};

} // namespace ql::impl
