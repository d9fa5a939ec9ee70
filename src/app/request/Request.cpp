#include "vireo/app/Request.h"

#include "app/body/RequestBody.h"
#include "app/kernel/Throw.h"
#include "app/request/RequestData.h"
#include "vireo/app/HttpError.h"
#include "vireo/support/IpAddress.h"
#include "vireo/support/qlSystemUtils.h"

#include <span>

namespace vireo {

namespace {

std::span<const std::string_view> spanOf(std::initializer_list<std::string_view> list) {
    return {list.begin(), list.size()};
}

} // namespace

const std::string& Request::method() const {
    return data_.head.method();
}

const std::string& Request::target() const {
    return data_.head.target();
}

const std::string& Request::path() const {
    return data_.head.path();
}

const std::string& Request::route() const {
    return data_.head.route();
}

const std::string& Request::host() const {
    return data_.head.host();
}

const std::string& Request::scheme() const {
    return data_.head.scheme();
}

const std::string& Request::id() const {
    return data_.head.id();
}

const std::string& Request::client() const {
    return data_.head.client();
}

std::chrono::milliseconds Request::elapsed() const {
    return std::chrono::milliseconds(qlSystemUtils::GetTimeBaseMs() - data_.startMs);
}

const std::string& Request::path(std::string_view name) const {
    const std::string* const value = data_.head.findPath(name);
    if (value == nullptr) {
        impl::throwLogicError("the route \"" + route() + "\" has no parameter \"" + std::string(name) + "\"");
    }
    return *value;
}

const std::string& Request::query(std::string_view name) const {
    return data_.head.query(name);
}

const std::string& Request::header(std::string_view name) const {
    return data_.head.header(name);
}

const std::string& Request::cookie(std::string_view name) const {
    return data_.head.cookie(name);
}

std::string Request::query(std::string_view name, const char* fallback) const {
    return hasQuery(name) ? query(name) : std::string(fallback);
}

bool Request::hasQuery(std::string_view name) const {
    return data_.head.hasQuery(name);
}

std::vector<std::string> Request::queryAll(std::string_view name) const {
    return data_.head.queryAll(name);
}

const std::vector<QueryArgument>& Request::queryArguments() const {
    return data_.head.queryArguments();
}

std::vector<std::string> Request::headerAll(std::string_view name) const {
    return data_.head.headerAll(name);
}

std::size_t Request::headerCount() const {
    return data_.head.lines().size();
}

Header Request::headerAt(std::size_t index) const {
    const auto lines = data_.head.lines();
    if (index >= lines.size()) {
        impl::throwLogicError("the request has no header number " + std::to_string(index));
    }
    return {lines[index].name, lines[index].value};
}

const std::vector<Cookie>& Request::cookies() const {
    return data_.head.cookies();
}

Body& Request::body() {
    return data_.source.body().body();
}

Form& Request::form() {
    return form(FormOptions());
}

Form& Request::form(const FormOptions& options) {
    return data_.source.body().form(options);
}

FormParts& Request::parts() {
    return data_.source.body().parts();
}

NewFile Request::newFile(const std::string& directory) {
    return data_.source.body().newFile(directory);
}

std::string Request::accepts(std::initializer_list<std::string_view> types) const {
    return data_.head.accepts(spanOf(types));
}

std::string Request::acceptsLanguage(std::initializer_list<std::string_view> languages) const {
    return data_.head.acceptsLanguage(spanOf(languages));
}

std::string Request::acceptsEncoding(std::initializer_list<std::string_view> codings) const {
    return data_.head.acceptsEncoding(spanOf(codings));
}

const ql::IpAddress& Request::clientAddress() const {
    return data_.head.clientAddress();
}

bool Request::isSecure() const {
    return scheme() == "https";
}

bool Request::isGone() const {
    return data_.source.isGone();
}

const ql::http::TlsPeer* Request::tls() const {
    return data_.head.tls();
}

const ql::HttpBaseRequest& Request::core() const {
    return data_.source.core();
}

void Request::refusePath(std::string_view) const {
    throw HttpError(404);
}

void Request::refuseQuery(std::string_view name) const {
    throw HttpError(400, hasQuery(name) ? "the argument \"" + std::string(name) + "\" is not right"
                                        : "the argument \"" + std::string(name) + "\" is missing");
}

void* Request::value(const void* key, std::shared_ptr<void> (*make)()) {
    return data_.values.find(key, make);
}

} // namespace vireo
