#include "vireo/app/Form.h"

#include "app/body/BodyReader.h"
#include "app/body/FormState.h"
#include "app/kernel/Throw.h"
#include "app/request/Query.h"
#include "frame/InvalidArgument.h"
#include "vireo/app/HttpError.h"

#include <algorithm>

namespace vireo {

// ---- Options ----

FormOptions::FormOptions() : limits_(std::make_unique<impl::FormLimits>()) {}

FormOptions::FormOptions(const FormOptions& other) : limits_(std::make_unique<impl::FormLimits>(*other.limits_)) {}

FormOptions& FormOptions::operator=(const FormOptions& other) {
    *limits_ = *other.limits_;
    return *this;
}

FormOptions::~FormOptions() = default;

FormOptions& FormOptions::maxFields(std::size_t count) {
    limits_->maxFields = count;
    return *this;
}

FormOptions& FormOptions::maxFieldBytes(std::uint64_t bytes) {
    limits_->maxFieldBytes = bytes;
    return *this;
}

FormOptions& FormOptions::maxFiles(std::size_t count) {
    limits_->maxFiles = count;
    return *this;
}

FormOptions& FormOptions::maxFileBytes(std::uint64_t bytes) {
    limits_->maxFileBytes = bytes;
    return *this;
}

FormOptions& FormOptions::directory(std::string path) {
    limits_->directory = std::move(path);
    return *this;
}

// ---- Files ----

FormFile::FormFile(std::unique_ptr<impl::FormFileState> state) : state_(std::move(state)) {}

FormFile::FormFile(FormFile&& other) noexcept = default;

FormFile& FormFile::operator=(FormFile&& other) noexcept = default;

FormFile::~FormFile() = default;

const std::string& FormFile::name() const {
    return state_->head.name;
}

const std::string& FormFile::fileName() const {
    return state_->head.fileName;
}

const std::string& FormFile::contentType() const {
    return state_->head.contentType;
}

std::uint64_t FormFile::size() const {
    return state_->file.size();
}

const std::string& FormFile::path() const {
    return state_->file.path();
}

void FormFile::keepAs(const std::string& path) {
    if (state_->file.isKept()) {
        impl::throwLogicError("the file of the form is kept already, as " + state_->file.path());
    }
    if (path.find('\0') != std::string::npos) {
        ql::impl::throwInvalidArgument("the path of a file has a zero byte");
    }
    state_->file.keepAs(path);
}

// ---- The form ----

namespace {

HttpError missing(const char* what, std::string_view name) {
    return HttpError(400, std::string("the form has no ").append(what).append(" \"").append(name).append("\""));
}

} // namespace

Form::Form(std::unique_ptr<impl::FormState> state) : state_(std::move(state)) {}

Form::~Form() = default;

const std::string& Form::operator[](std::string_view name) const {
    const auto field = std::ranges::find(state_->fields, name, &FormField::name);
    if (field == state_->fields.end()) {
        throw missing("field", name);
    }
    return field->value;
}

std::string Form::get(std::string_view name, std::string_view fallback) const {
    return has(name) ? (*this)[name] : std::string(fallback);
}

bool Form::has(std::string_view name) const {
    return std::ranges::find(state_->fields, name, &FormField::name) != state_->fields.end();
}

std::vector<std::string> Form::all(std::string_view name) const {
    std::vector<std::string> values;
    for (const FormField& field : state_->fields) {
        if (field.name == name) {
            values.push_back(field.value);
        }
    }
    return values;
}

const std::vector<FormField>& Form::fields() const {
    return state_->fields;
}

void Form::refuse(std::string_view name) const {
    throw HttpError(400, "the field \"" + std::string(name) + "\" of the form is not right");
}

std::vector<FormFile>& Form::files() {
    return state_->files;
}

FormFile& Form::file(std::string_view name) {
    const auto file = std::ranges::find(state_->files, name,
                                        [](const FormFile& other) -> const std::string& { return other.name(); });
    if (file == state_->files.end()) {
        throw missing("file", name);
    }
    return *file;
}

// ---- Its parts ----

FormPart::FormPart(impl::PartState& state) : state_(state) {}

const std::string& FormPart::name() const {
    return state_.head.name;
}

const std::string& FormPart::fileName() const {
    return state_.head.fileName;
}

const std::string& FormPart::contentType() const {
    return state_.head.contentType;
}

bool FormPart::isFile() const {
    return state_.head.isFile;
}

std::optional<std::string_view> FormPart::read() {
    return state_.reader.read();
}

FormParts::FormParts(impl::FormReader& reader) : reader_(reader) {}

FormPart* FormParts::next() {
    impl::PartState* const state = reader_.next();
    return state == nullptr ? nullptr : &state->part;
}

// ---- Reading it ----

namespace impl {

namespace {

[[noreturn]] void failTooLarge(const std::string& what, std::uint64_t limit) {
    throw HttpError(413, what + " " + std::to_string(limit));
}

void readField(FormReader& reader, const PartHead& head, const FormLimits& limits, FormState& form) {
    if (form.fields.size() == limits.maxFields) {
        failTooLarge("a form may have this many fields:", limits.maxFields);
    }
    FormField field{head.name, {}};
    while (const auto piece = reader.read()) {
        field.value += *piece;
        if (field.value.size() > limits.maxFieldBytes) {
            failTooLarge("a field of a form may have this many bytes:", limits.maxFieldBytes);
        }
    }
    if (field.name.size() > limits.maxFieldBytes) {
        failTooLarge("a field of a form may have this many bytes:", limits.maxFieldBytes);
    }
    field.value = withReplacedUtf8(std::move(field.value));
    form.fields.push_back(std::move(field));
}

void readFile(FormReader& reader, const PartHead& head, const FormLimits& limits, FormState& form) {
    std::optional<std::string_view> piece = reader.read();
    if (!piece && head.fileName.empty()) {
        return; // which browsers send where no file was chosen
    }
    if (form.files.size() == limits.maxFiles) {
        failTooLarge("a form may have this many files:", limits.maxFiles);
    }
    auto file =
        std::make_unique<FormFileState>(head, limits.directory.empty() ? temporaryDirectory() : limits.directory);
    const std::uint64_t maxBytes = limits.maxFileBytes.value_or(reader.body().maxBytes());
    for (; piece; piece = reader.read()) {
        if (piece->size() > maxBytes - file->file.size()) {
            failTooLarge("a file of a form may have this many bytes:", maxBytes);
        }
        file->file.write(*piece);
    }
    file->file.finish();
    form.files.push_back(FormFileState::make(std::move(file)));
}

} // namespace

std::unique_ptr<Form> readForm(FormReader& reader, const FormLimits& limits) {
    auto form = std::make_unique<FormState>();
    while (const PartState* const part = reader.next()) {
        if (part->head.isFile) {
            readFile(reader, part->head, limits, *form);
        } else {
            readField(reader, part->head, limits, *form);
        }
    }
    return FormState::make(std::move(form));
}

} // namespace impl

} // namespace vireo
