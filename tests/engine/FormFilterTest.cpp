#include "engine/FormFilter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

using ql::impl::FormFilter;

/// What goes to the engine, with a bar at each separator.
class Target : public ql::impl::FormTarget {
public:
    bool pass(std::string_view bytes) override {
        passed.append(bytes);
        return !passed.ends_with(refused);
    }
    void separate() override { passed += '|'; }

    std::string passed;
    std::string refused = "never";
};

constexpr const char* UrlEncoded = "application/x-www-form-urlencoded";
constexpr const char* Multipart = "multipart/form-data; boundary=b";

std::string filtered(const char* contentType, const std::vector<std::string>& pieces) {
    const std::unique_ptr<FormFilter> filter = FormFilter::For(contentType);
    Target target;
    for (const std::string& piece : pieces) {
        if (!filter->filter(piece, target)) {
            return "malformed";
        }
    }
    return filter->finish(target) ? target.passed : "cut short";
}

/// The same for the body whole, byte by byte, and cut at each position.
void expectFiltered(const char* contentType, const std::string& body, const std::string& expected) {
    EXPECT_EQ(filtered(contentType, {body}), expected);
    std::vector<std::string> bytes;
    for (const char c : body) {
        bytes.emplace_back(1, c);
    }
    EXPECT_EQ(filtered(contentType, bytes), expected);
    for (std::size_t cut = 0; cut <= body.size(); ++cut) {
        EXPECT_EQ(filtered(contentType, {body.substr(0, cut), body.substr(cut)}), expected) << cut;
    }
}

TEST(FormFilter, IsThereForFormsAlone) {
    for (const char* const type :
         {"application/x-www-form-urlencoded", "Application/X-WWW-Form-Urlencoded; charset=UTF-8",
          "application/x-www-form-urlencoded ;a", "multipart/form-data; boundary=a", "Multipart/Form-Data;boundary=a",
          "multipart/form-data; boundary=\"a b\"", "multipart/form-data; charset=utf-8; boundary=----x'()+_,./:=?9"}) {
        EXPECT_NE(FormFilter::For(type), nullptr) << type;
    }
    EXPECT_NE(FormFilter::For("multipart/form-data; boundary=" + std::string(70, 'x')), nullptr);
    for (const char* const type :
         {"", "text/plain", "application/x-www-form-urlencoded2", "application/x-www-form", "multipart/form-data",
          "multipart/mixed; boundary=a", "multipart/form-data; boundary=", "multipart/form-data; boundary=\"\"",
          "multipart/form-data; boundary=a; charset=utf-8", "multipart/form-data; boundary=a ",
          "multipart/form-data; boundary=\"a", "multipart/form-data; boundary=\xC3\xA4"}) {
        EXPECT_EQ(FormFilter::For(type), nullptr) << type;
    }
    EXPECT_EQ(FormFilter::For("multipart/form-data; boundary=" + std::string(71, 'x')), nullptr);
}

TEST(FormFilter, PairsAreSeparatedBehindEachAmpersand) {
    expectFiltered(UrlEncoded, "a=1&b&&c=+2", "a=1&|b&|&|c=+2\n");
    expectFiltered(UrlEncoded, "", "\n");
}

TEST(FormFilter, WhatTheEngineTakesForAnErrorOrAnEndIsEscaped) {
    expectFiltered(UrlEncoded, "a=1==2\r\n&b\r=3\n=", "a=1%3D%3D2%0D%0A&|b%0D=3%0A%3D\n");
    expectFiltered(UrlEncoded, std::string("a=\0b", 4), "a=%00b\n");
}

TEST(FormFilter, PercentSignThatBeginsNoEscapeStandsForItself) {
    expectFiltered(UrlEncoded, "%41%=%4&b%zz=%4g%%41%", "%41%25=%254&|b%25zz=%254g%25%41%25\n");
    expectFiltered(UrlEncoded, "a=%aF%0", "a=%aF%250\n");
}

TEST(FormFilter, NameWithANulIsMalformed) {
    expectFiltered(UrlEncoded, "a=1&b%00c=2", "malformed");
    expectFiltered(UrlEncoded, std::string("a\0=1", 4), "malformed");
    expectFiltered(UrlEncoded, "a=%00", "a=%00\n");
}

TEST(FormFilter, PartsAreSeparatedBehindEachDelimiter) {
    expectFiltered(Multipart, "--b\r\nx\r\n--b--\r\n", "--b|\r\nx\r\n--b|--\r\n");
    expectFiltered(Multipart, "pre\r\n--b\r\n\r\n\r\n--b--", "pre\r\n--b|\r\n\r\n\r\n--b|--");
    expectFiltered(Multipart, "--b\r\n\r\r\n-\r\n--a\r\n\r\n--b--", "--b|\r\n\r\r\n-\r\n--a\r\n\r\n--b|--");
}

TEST(FormFilter, DelimiterBeginsALine) {
    expectFiltered(Multipart, "--b\r\nx--b\n--b\r\n--b--", "--b|\r\nx--b\n--b\r\n--b|--");
    expectFiltered(Multipart, "x--b--", "cut short");
}

TEST(FormFilter, BodyWithoutADelimiterIsCutShort) {
    expectFiltered(Multipart, "", "cut short");
    expectFiltered(Multipart, "--", "cut short");
    expectFiltered(Multipart, "\r\n--c--\r\n", "cut short");
}

TEST(FormFilter, WhatTheEngineRefusesEndsIt) {
    for (const char* const type : {UrlEncoded, Multipart}) {
        Target target;
        target.refused = "--b";
        const std::unique_ptr<FormFilter> filter = FormFilter::For(type);
        EXPECT_FALSE(filter->filter("--b", target));
        EXPECT_THAT(target.passed, testing::Not(testing::HasSubstr("|")));
    }
    Target target;
    target.refused = "&";
    EXPECT_FALSE(FormFilter::For(UrlEncoded)->filter("a&b", target));
    EXPECT_EQ(target.passed, "a&");
}

} // namespace
