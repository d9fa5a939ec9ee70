// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace ql::impl {

/// Gets a form's body as the engine is to have it.
class FormTarget {
public:
    virtual ~FormTarget() = default;

    /// @return false when it is malformed.
    virtual bool pass(std::string_view bytes) = 0;
    /// What was passed so far belongs to the parts before; a part may begin now.
    virtual void separate() = 0;
};

/// What a form's body goes through before the engine decodes it: finds where its parts end, which the engine does not
/// tell. Of one body; its pieces may have any size.
class FormFilter {
public:
    /// @param contentType the header's value.
    /// @return null when it names no form.
    static std::unique_ptr<FormFilter> For(std::string_view contentType);

    virtual ~FormFilter() = default;

    /// @return false when it is malformed.
    virtual bool filter(std::string_view body, FormTarget& target) = 0;
    /// The body has ended. @return false when it is cut short, as far as it shows here.
    virtual bool finish(FormTarget& target) = 0;
};

/// Of "application/x-www-form-urlencoded", where the engine takes for an error, or for the end, what browsers don't:
/// such bytes are passed percent-encoded.
class UrlEncodedFilter final : public FormFilter {
public:
    bool filter(std::string_view body, FormTarget& target) override;
    bool finish(FormTarget& target) override;

private:
    /// @return false when it is malformed.
    bool take(char c, FormTarget& target);
    bool takeOfEscape(char c);
    void endEscape();

    /// What is to be passed.
    std::string out_;
    /// A percent sign and what may belong to it; empty when there is none.
    std::string escape_;
    bool isInName_ = true;
};

/// Of "multipart/form-data".
class MultipartFilter final : public FormFilter {
public:
    explicit MultipartFilter(std::string_view boundary) : delimiter_("\r\n--" + std::string(boundary)) {}

    bool filter(std::string_view body, FormTarget& target) override;
    bool finish(FormTarget& target) override;

private:
    const std::string delimiter_;
    /// How much of it has come; the body begins as if behind a line.
    std::size_t matched_ = 2;
    bool hasDelimiter_ = false;
};

} // namespace ql::impl
