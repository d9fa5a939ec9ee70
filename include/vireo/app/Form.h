// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Request.h"
#include "vireo/app/export.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace vireo {

namespace impl {
class FormReader;
struct FormFileState;
struct FormLimits;
struct FormState;
struct PartState;
} // namespace impl

/// How much of a form Request::form() takes, and where its files go. What is beyond a limit is answered with 413 and
/// a text that names the limit. Beside these the limit of the route's body holds.
class VIREO_APP_API FormOptions {
public:
    FormOptions();
    FormOptions(const FormOptions& other);            ///< copies
    FormOptions& operator=(const FormOptions& other); ///< copies
    ~FormOptions();

    /// How many fields there may be, files not counted. 1000 by default.
    FormOptions& maxFields(std::size_t count);
    /// How long the value of one field may be, and how long its name. 1 MiB by default.
    FormOptions& maxFieldBytes(std::uint64_t bytes);
    /// How many files there may be. 100 by default.
    FormOptions& maxFiles(std::size_t count);
    /// How long one file may be. As long as the body may be by default.
    FormOptions& maxFileBytes(std::uint64_t bytes);
    /// Where files lie until they are kept or the request is over. The system's directory for temporary files by
    /// default, or when it is empty.
    FormOptions& directory(std::string path);

private:
    friend struct impl::FormLimits;

    std::unique_ptr<impl::FormLimits> limits_;
};

/// A file that a form has brought. It lies on the disk until it is kept, or removed with the request.
class VIREO_APP_API FormFile {
public:
    FormFile(FormFile&& other) noexcept;            ///< takes over: the other may only be assigned to or destroyed
    FormFile& operator=(FormFile&& other) noexcept; ///< takes over; removes what it held
    /// Removes a file that was not kept.
    ~FormFile();

    /// Of the form's field.
    const std::string& name() const;
    /// As the client names it, without directories. Not for paths: two clients may send the same one.
    const std::string& fileName() const;
    /// As the client says; empty when it does not.
    const std::string& contentType() const;
    /// In bytes.
    std::uint64_t size() const;
    /// Where it lies now.
    const std::string& path() const;

    /// Gives it a place of its own, by one step that replaces a file there. Across the border of a file system it is
    /// copied beside that place before. The path is taken as it is, ".." and all: make it of what you have chosen, not
    /// of fileName() or a field; NewFile::keepAs() takes names of clients. It stays readable by its owner alone, on
    /// systems with such modes.
    /// @throws std::system_error when the system refuses.
    /// @throws std::logic_error when it is kept already.
    void keepAs(const std::string& path);

private:
    friend struct impl::FormFileState;
    explicit FormFile(std::unique_ptr<impl::FormFileState> state);

    std::unique_ptr<impl::FormFileState> state_;
};

/// A field of a form: a name and its value, of which there will never be more.
struct FormField {
    std::string name;  ///< as the page has it
    std::string value; ///< empty without one
};

/// A form as a whole; Request::form() gives it. Of the fields and files of one name the first counts, unless all are
/// asked for. One thread at a time.
class VIREO_APP_API Form {
public:
    Form(const Form&) = delete;
    Form& operator=(const Form&) = delete;
    ~Form();

    /// The value of a field, as long as the request lives.
    /// @throws HttpError 400 when there is none.
    const std::string& operator[](std::string_view name) const;
    /// The value of a field.
    /// @param fallback what it is without one.
    std::string get(std::string_view name, std::string_view fallback) const;
    /// A field as a value, as Request::query() reads it; a checkbox as a bool.
    /// @throws HttpError 400 that names it when it is missing or does not fit T.
    template <class T>
    T get(std::string_view name) const {
        T value{};
        if (!impl::readValue((*this)[name], value)) {
            refuse(name);
        }
        return value;
    }
    /// A field as a value, or the other one when it is missing; a checkbox that is not checked is missing.
    /// @throws HttpError 400 that names it when it does not fit T.
    template <class T, class = std::enable_if_t<impl::IsValue<T>>>
    T get(std::string_view name, T fallback) const {
        return has(name) ? get<T>(name) : fallback;
    }
    bool has(std::string_view name) const; ///< whether there is such a field, be it empty
    /// The values of all fields of a name, in their order.
    std::vector<std::string> all(std::string_view name) const;
    /// All fields, in their order.
    const std::vector<FormField>& fields() const;
    /// All files, in their order.
    std::vector<FormFile>& files();
    /// The first file of a name.
    /// @throws HttpError 400 when there is none.
    FormFile& file(std::string_view name);

private:
    friend struct impl::FormState;
    explicit Form(std::unique_ptr<impl::FormState> state);

    [[noreturn]] void refuse(std::string_view name) const;

    std::unique_ptr<impl::FormState> state_;
};

/// A field or file of a form while it arrives.
class VIREO_APP_API FormPart {
public:
    FormPart(const FormPart&) = delete;
    FormPart& operator=(const FormPart&) = delete;

    /// Of the form's field.
    const std::string& name() const;
    /// As the client names it, without directories; empty for a field.
    const std::string& fileName() const;
    /// As the client says; empty when it does not.
    const std::string& contentType() const;
    /// Whether it is a file rather than a field.
    bool isFile() const;

    /// The next piece of its content, as soon as there is some.
    /// @return none at its end. What it returns lives until the next call.
    /// @throws ClientGone as Body::read().
    /// @throws HttpError as Body::read(), and with 400 when the form is malformed.
    std::optional<std::string_view> read();

private:
    friend struct impl::PartState;
    explicit FormPart(impl::PartState& state);

    impl::PartState& state_;
};

/// A form part by part, as it arrives; Request::parts() gives it. Nothing of it is kept. One thread at a time.
class VIREO_APP_API FormParts {
public:
    FormParts(const FormParts&) = delete;
    FormParts& operator=(const FormParts&) = delete;

    /// The next part; passes over what was not read of the one before.
    /// @return null at the end of the form. The part is there until the next call.
    /// @throws ClientGone as FormPart::read().
    /// @throws HttpError as FormPart::read().
    FormPart* next();

private:
    friend class impl::FormReader;
    explicit FormParts(impl::FormReader& reader);

    impl::FormReader& reader_;
};

} // namespace vireo
