// A head that is parsed for who asks first, when memory runs out, at each allocation in turn.

#include "request/LineIntake.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "support/FailingAllocation.h"
#include "support/FakeRequest.h"
#include "support/TestLog.h"

#include <cstddef>
#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace {

using Kind = ql::HttpBaseRequest::ParseErrorKind;

const std::string Long(64, 'x');

TEST(HeadOnDemandWithoutMemory, HasAnErrorThatNamesIt) {
    vireotest::FakeServerImpl application;
    std::size_t failures = 0;
    for (bool worked = false; !worked; ++failures) {
        SCOPED_TRACE("failure " + std::to_string(failures + 1));
        vireotest::TestLog log;
        vireotest::FakeRequest request(application);
        ql::impl::fileLines(request, "GET", "/" + Long + "?q=" + Long,
                            {{"Host", "h.test"}, {"Cookie", "k=" + Long}, {"X-Long", Long}}, std::nullopt);
        ql::impl::RequestAccess::state(request).isHeadUnparsed = true;

        vireotest::failAllocation(failures + 1);
        worked = !request.hasParseError();
        vireotest::failAllocation(0);

        EXPECT_EQ(request.getParseErrorKind(), worked ? Kind::None : Kind::Memory);
        // It isn't parsed again, and what is there is whole.
        EXPECT_FALSE(ql::impl::RequestAccess::state(request).isHeadUnparsed);
        for (const auto& [name, values] : request.getHeaders().getAll()) {
            EXPECT_EQ(values.size(), 1U) << name;
        }
        for (const auto* pairs : {&request.getCookies(), &request.getQueryParameters()}) {
            for (const auto& [name, values] : *pairs) {
                EXPECT_EQ(values.size(), 1U) << name;
                EXPECT_EQ(values.front(), Long);
            }
        }
    }
    EXPECT_GT(failures, 10U);
}

} // namespace
