#include "vireo/HttpResponseInterface.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <type_traits>

namespace {

/// Copies what the base class copies, and nothing of its own.
class MarkedResponse : public ql::HttpResponseInterface {
public:
    explicit MarkedResponse(int value) : mark(value) {}
    MarkedResponse(const MarkedResponse& other) : HttpResponseInterface(other) {}
    MarkedResponse& operator=(const MarkedResponse& other) {
        assignedBase = &HttpResponseInterface::operator=(other);
        return *this;
    }

    const Cookies& getCookies() const override { return cookies_; }
    const Headers& getHeaders() const override { return headers_; }
    std::uint32_t getStatusCode() const override { return 200; }
    std::int64_t getContentLength() const override { return -1; }
    std::string getReasonPhrase() const override { return "OK"; }

    int mark = 0;
    ql::HttpResponseInterface* assignedBase = nullptr;

private:
    Cookies cookies_;
    Headers headers_;
};

TEST(HttpResponseInterface, CopyTakesNothingOver) {
    const MarkedResponse original(7);
    const MarkedResponse copy(original);
    EXPECT_EQ(copy.mark, 0);
}

TEST(HttpResponseInterface, AssignmentTakesNothingOverAndGivesTheObjectItself) {
    const MarkedResponse original(7);
    MarkedResponse target(3);
    target = original;
    EXPECT_EQ(target.mark, 3);
    EXPECT_EQ(target.assignedBase, &target);
}

TEST(HttpResponseInterface, HasNoDataOfItsOwn) {
    EXPECT_EQ(sizeof(ql::HttpResponseInterface), sizeof(void*));
    EXPECT_TRUE(std::is_abstract_v<ql::HttpResponseInterface>);
    EXPECT_TRUE(std::has_virtual_destructor_v<ql::HttpResponseInterface>);
}

} // namespace
