#include "vireo/TlsContext.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using ql::http::TlsContext;

TEST(TlsMissing, NoContextCanBeMade) {
    std::string error;
    EXPECT_EQ(TlsContext::Create({}, &error), nullptr);
    EXPECT_EQ(error, "Vireo was built without TLS");
    EXPECT_EQ(TlsContext::Create({}), nullptr);
}

} // namespace
