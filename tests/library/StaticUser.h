#pragma once

#include "vireo/HttpBaseRequest.h"
#include "vireo/Vireo.h"

#include <cstdio>
#include <cstdlib>

namespace vireotest {

/// Ends the process, also before and after main(), when something that should be true is not.
inline void expect(bool isTrue, const char* what) {
    if (!isTrue) {
        std::fprintf(stderr, "not so: %s\n", what);
        std::fflush(stderr);
        std::_Exit(1);
    }
}

/// Whether the library is up and knows its methods.
inline bool isUp() {
    using ql::HttpBaseRequest;
    return ql::IsVireoInitialized() && HttpBaseRequest::sRequestTypes.count("GET") == 1 &&
           HttpBaseRequest::RequestTypeToString(HttpBaseRequest::RequestType::Get) == "GET";
}

} // namespace vireotest
