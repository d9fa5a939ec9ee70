#include "vireo/HttpBaseRequest.h"

#include <array>
#include <utility>

namespace ql {

namespace {

using RequestType = HttpBaseRequest::RequestType;

const std::string UnknownToken = "UNKNOWN_HTTP_METHOD";

/// In the order in which a set of methods is spelled out: the usual ones first.
const std::array<std::pair<RequestType, std::string>, 10> Methods{{
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
}};

} // namespace

HttpBaseRequest::RequestTypes HttpBaseRequest::sRequestTypes;

void HttpBaseRequest::InitRequestTypes() {
    sRequestTypes.clear();
    for (const auto& [type, token] : Methods) {
        sRequestTypes.insert_or_assign(token, type);
    }
}

void HttpBaseRequest::ClearRequestTypes() {
    sRequestTypes.clear();
}

const std::string& HttpBaseRequest::RequestTypeToString(RequestType type) {
    for (const auto& [known, token] : Methods) {
        if (known == type) {
            return token;
        }
    }
    return UnknownToken;
}

std::string HttpBaseRequest::RequestTypeBitFieldToString(int bits) {
    std::string names;
    const auto addIfSet = [&](RequestType type, const std::string& name) {
        if ((bits & static_cast<int>(type)) != 0) {
            names += names.empty() ? name : ", " + name;
        }
    };
    for (const auto& [type, token] : Methods) {
        addIfSet(type, token);
    }
    addIfSet(RequestType::Unknown, UnknownToken);
    return names;
}

} // namespace ql
