// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Body.h"
#include "vireo/app/HttpError.h"
#include "vireo/app/Request.h"
#include "vireo/app/Response.h"
// Before the alias Json: GCC 12 warns of enumerators that come behind it, -Wshadow, though they are in a scope.
#include "vireo/app/RunSettings.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace vireo {

/// JSON, by nlohmann-json, which your program has to have: `const vireo::Json note{{"id", 1}};`.
using Json = nlohmann::json;

namespace impl {
/// All that Json can be made of, but for texts: see Response::json().
template <class Value>
concept IsJsonValue = std::is_same_v<Value, Json> ||
    (std::is_constructible_v<Json, const Value&> && !std::is_convertible_v<const Value&, std::string_view>);
} // namespace impl

/// Of such a value. What is no UTF-8 in it becomes U+FFFD.
template <impl::IsJsonValue Value>
struct JsonText<Value> {
    /// The text of a value.
    static std::string of(const Value& value) {
        if constexpr (std::is_same_v<Value, Json>) {
            return value.dump(-1, ' ', false, Json::error_handler_t::replace);
        } else {
            return JsonText<Json>::of(Json(value));
        }
    }
};

namespace impl {
/// What stands between braces, as Json takes it: `response.json({{"id", 1}})`.
struct JsonList {
    JsonList(Json::initializer_list_t list) : value(list) {} ///< that list

    Json value; ///< the object or array
};
} // namespace impl

/// Of a list between braces.
template <>
struct JsonText<impl::JsonList> {
    /// The text of the list.
    static std::string of(const impl::JsonList& list) { return JsonText<Json>::of(list.value); }
};

/// The deepest nesting that readJson() takes.
inline constexpr int MaxJsonDepth = 128;

/// How many values readJson() takes unless it is told otherwise. One needs up to about 200 bytes of memory, and as few
/// as two of the body: the route's limit alone would bound little.
inline constexpr std::size_t MaxJsonValues = 250000;

namespace impl {
/// Makes a Json of what its parser finds, within bounds. The parser's own way, which is to ask a callback, looks
/// through all of an array or object again for each object in it, and so would be busy for hours.
class JsonReader final : public Json::json_sax_t {
public:
    explicit JsonReader(std::size_t maxValues) : left_(maxValues) {} ///< so many at most

    /// What was read.
    Json take() { return std::move(json_); }

    /// What the parser has found; false would end it.
    ///@{
    bool null() override { return add(nullptr); }
    bool boolean(bool value) override { return add(value); }
    bool number_integer(Json::number_integer_t value) override { return add(value); }
    bool number_unsigned(Json::number_unsigned_t value) override { return add(value); }
    bool number_float(Json::number_float_t value, const std::string&) override { return add(value); }
    bool string(std::string& value) override { return add(std::move(value)); }
    bool binary(Json::binary_t&) override { return false; } // which no text has
    bool start_object(std::size_t) override { return open(Json::object()); }
    bool start_array(std::size_t) override { return open(Json::array()); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(std::string& name) override {
        key_ = std::move(name);
        return true;
    }
    bool parse_error(std::size_t byte, const std::string&, const Json::exception& error) override {
        throw HttpError(400, dynamic_cast<const Json::out_of_range*>(&error) != nullptr
                                 ? "a number of the JSON is out of range"
                                 : "no JSON at byte " + std::to_string(byte));
    }
    ///@}

private:
    Json& put(Json&& value) {
        if (left_ == 0) {
            throw HttpError(413, "the JSON has too many values");
        }
        --left_;
        if (open_.empty()) {
            return json_ = std::move(value);
        }
        Json& around = *open_.back();
        return around.is_array() ? around.emplace_back(std::move(value)) : around[key_] = std::move(value);
    }
    bool add(Json&& value) {
        put(std::move(value));
        return true;
    }
    bool open(Json&& value) {
        if (open_.size() >= static_cast<std::size_t>(MaxJsonDepth)) {
            throw HttpError(400, "the JSON is nested too deep");
        }
        open_.push_back(&put(std::move(value)));
        return true;
    }
    bool close() {
        open_.pop_back();
        return true;
    }

    std::size_t left_;
    Json json_;
    /// Each is the last within the one before, which grows no more while it is open: so they stay where they are.
    std::vector<Json*> open_;
    std::string key_;
};
} // namespace impl

/// The request's body as JSON of any form: `const vireo::Json note = vireo::readJson(request);`
/// @param maxValues how many objects, arrays, texts, numbers and so on it has at most, those within others as well.
/// @throws HttpError 415 for another Content-Type, 400 for what is no JSON, with the position, for a number that is out
///         of range and for too deep a nesting, 413 beyond the route's limit and for too many values; ClientGone.
inline Json readJson(Request& request, std::size_t maxValues = MaxJsonValues) {
    impl::requireJsonType(request);
    impl::JsonReader reader(maxValues);
    Json::sax_parse(request.body().text(), &reader);
    return reader.take();
}

/// The request's body as a value of a type that Json converts to: an own one with NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE or
/// from_json(), `readJson<std::vector<int>>(request)`, or `readJson<vireo::Json::object_t>(request)`, a map, for any
/// object. What Json itself throws where a handler takes it for something else is a 500, as other exceptions are.
/// @throws HttpError 400 that says what does not fit, and what readJson() throws.
template <class Value>
Value readJson(Request& request, std::size_t maxValues = MaxJsonValues) {
    const Json json = readJson(request, maxValues);
    try {
        return json.get<Value>();
    } catch (const Json::exception& error) {
        // Which is such as "[json.exception.out_of_range.403] key 'text' not found".
        const std::string_view what = error.what();
        throw HttpError(400, "the JSON is not of the right form:" + std::string(what.substr(what.find(']') + 1)));
    }
}

} // namespace vireo
