// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Body.h"
#include "vireo/app/HttpError.h"
#include "vireo/app/Request.h"
#include "vireo/app/Response.h"
// Before the alias Json: GCC 12 warns of enumerators that come behind it, -Wshadow, though they are in a scope.
#include "vireo/app/RunSettings.h"

#include <string>
#include <string_view>
#include <type_traits>

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

/// The request's body as JSON of any form: `const vireo::Json note = vireo::readJson(request);`
/// @throws HttpError 415 for another Content-Type, 400 for what is no JSON, with the position, for a number that is out
///         of range and for too deep a nesting, 413 beyond the route's limit; ClientGone.
inline Json readJson(Request& request) {
    impl::requireJsonType(request);
    const std::string& text = request.body().text();
    try {
        return Json::parse(text, [](int depth, Json::parse_event_t event, Json&) {
            const bool begins = event == Json::parse_event_t::object_start || event == Json::parse_event_t::array_start;
            if (begins && depth >= MaxJsonDepth) {
                throw HttpError(400, "the JSON is nested too deep");
            }
            return true;
        });
    } catch (const Json::parse_error& error) {
        throw HttpError(400, "no JSON at byte " + std::to_string(error.byte));
    } catch (const Json::out_of_range&) {
        throw HttpError(400, "a number of the JSON is out of range");
    }
}

/// The request's body as a value of a type that Json converts to: an own one with NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE or
/// from_json(), `readJson<std::vector<int>>(request)`, or `readJson<vireo::Json::object_t>(request)`, a map, for any
/// object. What Json itself throws where a handler takes it for something else is a 500, as other exceptions are.
/// @throws HttpError 400 that says what does not fit, and what readJson() throws.
template <class Value>
Value readJson(Request& request) {
    const Json json = readJson(request);
    try {
        return json.get<Value>();
    } catch (const Json::exception& error) {
        // Which is such as "[json.exception.out_of_range.403] key 'text' not found".
        const std::string_view what = error.what();
        throw HttpError(400, "the JSON is not of the right form:" + std::string(what.substr(what.find(']') + 1)));
    }
}

} // namespace vireo
