#include "frame/NeverDestroyed.h"
#include "platform/EarlyStatic.h"
#include "vireo/HttpBaseRequest.h"

#include <array>
#include <utility>

namespace ql {

namespace {

using RequestType = HttpBaseRequest::RequestType;
using Methods = std::array<std::pair<RequestType, std::string>, 11>;

/// In the order in which a set of methods is spelled out: the usual ones first, and what is none of them last.
const Methods& methods() {
    static impl::NeverDestroyed<const Methods> all(Methods{{
        {RequestType::Get, "GET"},
        {RequestType::Post, "POST"},
        {RequestType::Put, "PUT"},
        {RequestType::Delete, "DELETE"},
        {RequestType::Options, "OPTIONS"},
        {RequestType::Head, "HEAD"},
        {RequestType::Connect, "CONNECT"},
        {RequestType::Trace, "TRACE"},
        {RequestType::Patch, "PATCH"},
        {RequestType::Query, "QUERY"},
        {RequestType::Unknown, "UNKNOWN_HTTP_METHOD"},
    }});
    return *all;
}

} // namespace

VIREO_EARLY_STATIC HttpBaseRequest::RequestTypes HttpBaseRequest::sRequestTypes;

void HttpBaseRequest::InitRequestTypes() {
    RequestTypes known;
    for (const auto& [type, token] : methods()) {
        if (type != RequestType::Unknown) {
            known.emplace(token, type);
        }
    }
    sRequestTypes = std::move(known);
}

void HttpBaseRequest::ClearRequestTypes() {
    sRequestTypes.clear();
}

const std::string& HttpBaseRequest::RequestTypeToString(RequestType type) {
    for (const auto& [known, token] : methods()) {
        if (known == type) {
            return token;
        }
    }
    return methods().back().second;
}

std::string HttpBaseRequest::RequestTypeBitFieldToString(int bits) {
    std::string names;
    for (const auto& [type, token] : methods()) {
        if ((bits & static_cast<int>(type)) != 0) {
            names += names.empty() ? token : ", " + token;
        }
    }
    return names;
}

} // namespace ql
