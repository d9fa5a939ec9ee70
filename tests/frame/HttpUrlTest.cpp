#include "vireo/support/HttpUrl.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using ql::Url;
using ql::http::HttpUrl;

constexpr std::uint64_t Unlimited = 1000000;

Url parsed(const std::string& text, bool strictUtf8 = true) {
    Url url;
    std::string error = "old";
    EXPECT_TRUE(url.fromEncodedUtf8String(text, &error, strictUtf8, Unlimited)) << text << ": " << error;
    EXPECT_EQ(error, "");
    EXPECT_TRUE(url.isValid());
    return url;
}

/// Why the generic syntax refuses the text; empty when it does not.
std::string errorOf(const std::string& text, bool strictUtf8 = true) {
    Url url;
    std::string error;
    const bool valid = url.fromEncodedUtf8String(text, &error, strictUtf8, Unlimited);
    EXPECT_EQ(valid, error.empty());
    EXPECT_EQ(url.isValid(), valid);
    return error;
}

/// Why the http rules refuse the text; empty when they do not.
std::string httpErrorOf(const std::string& text) {
    HttpUrl url;
    std::string error;
    const bool valid = url.fromEncodedUtf8String(text, &error, true, Unlimited);
    EXPECT_EQ(valid, error.empty());
    EXPECT_EQ(url.isValid(), valid);
    return error;
}

bool isUnescaped(char c, const std::string& furtherCharacters) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           (std::string("-._~!$&'()*+,;=") + furtherCharacters).find(c) != std::string::npos;
}

/// Expects exactly the allowed bytes to be accepted between `before` and `after`. `delimiters` are accepted or not
/// for reasons of their own.
void expectAllowedCharacters(const std::string& before, const std::string& after, const std::string& furtherCharacters,
                             const std::string& delimiters) {
    for (int code = 0; code < 256; ++code) {
        const char c = static_cast<char>(code);
        if (delimiters.find(c) == std::string::npos) {
            EXPECT_EQ(errorOf(before + c + after).empty(), isUnescaped(c, furtherCharacters)) << code;
        }
    }
}

TEST(Url, IsInvalidBeforeTheFirstParse) {
    const Url url;
    EXPECT_FALSE(url.isValid());
    EXPECT_EQ(url.toString(), "");
    EXPECT_EQ(url.getPort(), 0);
    EXPECT_FALSE(url.hasQuery());
    EXPECT_FALSE(url.hasUserInfo());
}

TEST(Url, AllComponents) {
    const Url url = parsed("Foo://us%41er:pw@Example.COM:8181/a/b%20c?x=y#part");
    EXPECT_EQ(url.toString(), "Foo://us%41er:pw@Example.COM:8181/a/b%20c?x=y#part");
    EXPECT_EQ(url.getScheme(), "foo");
    EXPECT_TRUE(url.hasUserInfo());
    EXPECT_EQ(url.getUserInfo(), "us%41er:pw");
    EXPECT_EQ(url.getHost(), "example.com");
    EXPECT_EQ(url.getPort(), 8181);
    EXPECT_EQ(url.getPath(), "/a/b%20c");
    EXPECT_EQ(url.getDecodedPath(), "/a/b c");
    EXPECT_TRUE(url.hasQuery());
    EXPECT_EQ(url.getQuery(), "x=y");
    EXPECT_EQ(url.getFragment(), "part");
}

TEST(Url, SchemeAndHostAreEnough) {
    const Url url = parsed("http://h");
    EXPECT_EQ(url.getHost(), "h");
    EXPECT_EQ(url.getPath(), "");
    EXPECT_EQ(url.getDecodedPath(), "");
    EXPECT_FALSE(url.hasQuery());
    EXPECT_FALSE(url.hasUserInfo());
}

TEST(Url, QueryMayFollowTheHost) {
    const Url url = parsed("http://h?q");
    EXPECT_EQ(url.getHost(), "h");
    EXPECT_EQ(url.getPath(), "");
    EXPECT_EQ(url.getQuery(), "q");
}

TEST(Url, FragmentMayFollowTheHost) {
    const Url url = parsed("http://h#f");
    EXPECT_EQ(url.getHost(), "h");
    EXPECT_EQ(url.getFragment(), "f");
}

TEST(Url, EmptyQueryIsAQuery) {
    const Url url = parsed("http://h/?");
    EXPECT_TRUE(url.hasQuery());
    EXPECT_EQ(url.getQuery(), "");
    EXPECT_FALSE(parsed("http://h/").hasQuery());
}

TEST(Url, QuestionMarkInsideTheFragmentBeginsNoQuery) {
    const Url url = parsed("http://h/p#f?x");
    EXPECT_FALSE(url.hasQuery());
    EXPECT_EQ(url.getFragment(), "f?x");
}

TEST(Url, SecondQuestionMarkBelongsToTheQuery) {
    EXPECT_EQ(parsed("http://h/?a?b/c").getQuery(), "a?b/c");
}

TEST(Url, RequestTargetBehindThePlaceholderHost) {
    const Url url = parsed("http://127.0.0.1:80/a?b=c");
    EXPECT_EQ(url.getHost(), "127.0.0.1");
    EXPECT_EQ(url.getPort(), 80);
    EXPECT_EQ(url.getPath(), "/a");
    EXPECT_EQ(url.getQuery(), "b=c");
}

TEST(Url, FailureEmptiesEveryComponent) {
    Url url = parsed("http://user@host:1/p%41?q#f");
    std::string error;
    ASSERT_FALSE(url.fromEncodedUtf8String("http://user@host:1/p?q#%", &error, true, Unlimited));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(url.isValid());
    EXPECT_FALSE(url.hasQuery());
    EXPECT_FALSE(url.hasUserInfo());
    EXPECT_EQ(url.getPort(), 0);
    EXPECT_EQ(url.toString() + url.getScheme() + url.getUserInfo() + url.getHost() + url.getPath() +
                  url.getDecodedPath() + url.getQuery() + url.getFragment(),
              "");
}

TEST(Url, ASecondParseLeavesNothingOfTheFirst) {
    Url url = parsed("http://user@host:1/p?q#f");
    ASSERT_TRUE(url.fromEncodedUtf8String("x://y", nullptr, true, Unlimited));
    EXPECT_EQ(url.toString(), "x://y");
    EXPECT_EQ(url.getScheme(), "x");
    EXPECT_EQ(url.getHost(), "y");
    EXPECT_FALSE(url.hasUserInfo());
    EXPECT_FALSE(url.hasQuery());
    EXPECT_EQ(url.getPort(), 0);
    EXPECT_EQ(url.getUserInfo() + url.getPath() + url.getDecodedPath() + url.getQuery() + url.getFragment(), "");
}

TEST(Url, TheErrorMayBeNull) {
    Url url;
    EXPECT_FALSE(url.fromEncodedUtf8String("nothing", nullptr, true, Unlimited));
    EXPECT_TRUE(url.fromEncodedUtf8String("http://h", nullptr, true, Unlimited));
}

TEST(Url, ItsOwnTextMayBeParsedAgain) {
    Url url = parsed("http://h/p");
    EXPECT_TRUE(url.fromEncodedUtf8String(url.toString(), nullptr, true, Unlimited));
    EXPECT_EQ(url.toString(), "http://h/p");
}

TEST(Url, TheTextMayBeTheErrorText) {
    std::string text = "http://h/ ";
    Url url;
    EXPECT_FALSE(url.fromEncodedUtf8String(text, &text, true, Unlimited));
    EXPECT_EQ(text, "a space at position 2 of the path must be percent-encoded");
}

TEST(Url, CopiesAndMovesKeepTheComponents) {
    const Url url = parsed("http://h:1/p?q");
    Url copy(url);
    EXPECT_EQ(copy.getPath(), "/p");
    Url assigned;
    assigned = copy;
    EXPECT_TRUE(assigned.isValid());
    EXPECT_EQ(assigned.getQuery(), "q");
    Url moved(std::move(copy));
    EXPECT_EQ(moved.getPort(), 1);
    Url moveAssigned;
    moveAssigned = std::move(moved);
    EXPECT_EQ(moveAssigned.toString(), "http://h:1/p?q");
}

TEST(UrlScheme, TextWithoutOne) {
    EXPECT_EQ(errorOf(""), "the URL does not begin with a scheme");
    EXPECT_EQ(errorOf("host"), "the URL does not begin with a scheme");
    EXPECT_EQ(errorOf("://host"), "the URL does not begin with a scheme");
}

TEST(UrlScheme, BeginsWithALetter) {
    EXPECT_EQ(errorOf("1http://h"), "'1' at position 1 of the scheme is not a letter");
    EXPECT_EQ(errorOf("/a:b"), "'/' at position 1 of the scheme is not a letter");
    EXPECT_EQ(errorOf("a://h"), "");
    EXPECT_EQ(errorOf("Z://h"), "");
}

TEST(UrlScheme, HasLettersDigitsPlusMinusAndDots) {
    EXPECT_EQ(parsed("aZ09+-.://h").getScheme(), "az09+-.");
    EXPECT_EQ(errorOf("ht_tp://h"), "'_' at position 3 of the scheme is not a letter, digit, '+', '-' or '.'");
    for (int code = 0; code < 256; ++code) {
        const char c = static_cast<char>(code);
        const bool allowed = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '+' ||
                             c == '-' || c == '.';
        if (c != ':') {
            EXPECT_EQ(errorOf(std::string("a") + c + "://h").empty(), allowed) << code;
        }
    }
}

TEST(UrlScheme, IsFollowedByTwoSlashes) {
    EXPECT_EQ(errorOf("http:"), "the scheme is not followed by '://'");
    EXPECT_EQ(errorOf("http:/"), "the scheme is not followed by '://'");
    EXPECT_EQ(errorOf("http:/h/"), "the scheme is not followed by '://'");
    EXPECT_EQ(errorOf("mailto:a@b"), "the scheme is not followed by '://'");
}

TEST(UrlHost, NameMayHoldUnreservedSubDelimitersAndEscapes) {
    expectAllowedCharacters("http://a", "b", "", "%/?#@:");
    EXPECT_EQ(parsed("http://a%2Db").getHost(), "a%2db");
    EXPECT_EQ(errorOf("http://a[b"), "'[' at position 2 of the host must be percent-encoded");
}

TEST(UrlHost, EscapeErrorsNameTheirPlace) {
    EXPECT_EQ(errorOf("http://ab%4"), "'%' at position 3 of the host is not followed by two hexadecimal digits");
    EXPECT_EQ(errorOf("http://%zz/"), "'%' at position 1 of the host is not followed by two hexadecimal digits");
}

TEST(UrlHost, Ipv4AddressesAndWhatOnlyLooksLikeOneAreTaken) {
    EXPECT_EQ(parsed("http://127.0.0.1").getHost(), "127.0.0.1");
    // By the generic syntax a name: only a resolver can tell.
    EXPECT_EQ(parsed("http://256.0.0.1").getHost(), "256.0.0.1");
}

TEST(UrlHost, GenericSyntaxAllowsAnEmptyOne) {
    EXPECT_EQ(parsed("file:///etc").getHost(), "");
    EXPECT_EQ(parsed("file:///etc").getPath(), "/etc");
}

TEST(UrlHost, Ipv6AddressLosesItsBrackets) {
    const Url url = parsed("http://[2001:DB8::1]:8181/p");
    EXPECT_EQ(url.getHost(), "2001:db8::1");
    EXPECT_EQ(url.getPort(), 8181);
    EXPECT_EQ(url.getPath(), "/p");
}

TEST(UrlHost, EveryFormOfIpv6Address) {
    for (const char* address :
         {"::", "::1", "1::", "1::8", "1:2:3:4:5:6:7:8", "::2:3:4:5:6:7:8", "1:2:3:4:5:6:7::", "1:2:3::5:6:7:8",
          "1234:5678:9abc:def0:1234:5678:9ABC:DEF0", "1:2:3:4:5:6:1.2.3.4", "::1.2.3.4", "::ffff:255.255.255.255",
          "1::2:0.0.0.0", "1:2:3:4:5::1.2.3.4", "0001::"}) {
        EXPECT_EQ(errorOf(std::string("http://[") + address + "]/"), "") << address;
    }
}

TEST(UrlHost, WhatIsNoIpv6Address) {
    for (const char* address : {"",
                                ":",
                                ":::",
                                "1",
                                "1:",
                                ":1",
                                "1:2:3:4:5:6:7",
                                "1:2:3:4:5:6:7:8:9",
                                "1:2:3:4:5:6:7:8::",
                                "::1:2:3:4:5:6:7:8",
                                "1:2:3:4::5:6:7:8",
                                "1::2::3",
                                "1:::2",
                                "12345::",
                                "g::",
                                "1::2:",
                                "::1.2.3",
                                "::1.2.3.4.5",
                                "::256.0.0.1",
                                "::01.2.3.4",
                                "::1.2.3.",
                                "::1.2..4",
                                "1.2.3.4",
                                "1.2.3.4::",
                                "1:2:3:4:5:6:7:1.2.3.4",
                                "fe80::1%25eth0",
                                "v1",
                                "v1.",
                                "v.x",
                                "vg.x",
                                "1.x",
                                "v1.%41",
                                "v1.[",
                                "::1 "}) {
        EXPECT_EQ(errorOf(std::string("http://[") + address + "]/"),
                  "the brackets at position 1 of the host do not hold an IP address")
            << address;
    }
}

TEST(UrlHost, AddressesOfLaterVersionsAreAccepted) {
    EXPECT_EQ(parsed("http://[v1.x]:8/").getHost(), "v1.x");
    EXPECT_EQ(parsed("http://[VaF09.A-z0~!$&'()*+,;=:._]/").getHost(), "vaf09.a-z0~!$&'()*+,;=:._");
}

TEST(UrlHost, BracketsCloseAndOnlyAPortFollows) {
    EXPECT_EQ(errorOf("http://[::1/"), "the '[' at position 1 of the host has no ']'");
    EXPECT_EQ(errorOf("http://[::1]x/"), "'x' at position 6 of the host is not the ':' of a port");
    EXPECT_EQ(errorOf("http://[::1]]/"), "']' at position 6 of the host is not the ':' of a port");
}

TEST(UrlHost, Ipv6AddressWithoutBracketsIsRefused) {
    EXPECT_EQ(errorOf("http://::1/"), "':' at position 1 of the port is not a digit");
}

TEST(UrlUserInfo, MayHoldColonsAndEscapes) {
    expectAllowedCharacters("http://a", "b@h", ":", "%/?#@");
    EXPECT_EQ(parsed("http://%41:b:c@h").getUserInfo(), "%41:b:c");
    EXPECT_EQ(errorOf("http://a%4@h"),
              "'%' at position 2 of the user information is not followed by two hexadecimal digits");
}

TEST(UrlUserInfo, MayBeEmpty) {
    const Url url = parsed("http://@h");
    EXPECT_TRUE(url.hasUserInfo());
    EXPECT_EQ(url.getUserInfo(), "");
    EXPECT_EQ(url.getHost(), "h");
}

TEST(UrlUserInfo, EndsAtTheFirstAtSign) {
    EXPECT_EQ(errorOf("http://a@b@c/"), "'@' at position 2 of the host must be percent-encoded");
}

TEST(UrlPort, FromZeroTo65535) {
    EXPECT_EQ(parsed("http://h:0").getPort(), 0);
    EXPECT_EQ(parsed("http://h:1").getPort(), 1);
    EXPECT_EQ(parsed("http://h:65534").getPort(), 65534);
    EXPECT_EQ(parsed("http://h:65535").getPort(), 65535);
    EXPECT_EQ(errorOf("http://h:65536"), "the port is above 65535");
    EXPECT_EQ(errorOf("http://h:4294967297"), "the port is above 65535");
    EXPECT_EQ(errorOf("http://h:18446744073709551617"), "the port is above 65535");
}

TEST(UrlPort, EmptyOneAndLeadingZerosAreAllowed) {
    EXPECT_EQ(parsed("http://h:/").getPort(), 0);
    EXPECT_EQ(parsed("http://h:000000080/").getPort(), 80);
}

TEST(UrlPort, HasDigitsOnly) {
    EXPECT_EQ(errorOf("http://h:8x/"), "'x' at position 2 of the port is not a digit");
    EXPECT_EQ(errorOf("http://h:-1/"), "'-' at position 1 of the port is not a digit");
    EXPECT_EQ(errorOf("http://h:99999999x/"), "'x' at position 9 of the port is not a digit");
}

TEST(UrlPort, RequestTargetsThatAreNoPathRunIntoIt) {
    EXPECT_EQ(errorOf("http://127.0.0.1:80*"), "'*' at position 3 of the port is not a digit");
    EXPECT_EQ(errorOf("http://127.0.0.1:80http://h/"), "'h' at position 3 of the port is not a digit");
}

TEST(UrlPath, HoldsExactlyItsCharacters) {
    expectAllowedCharacters("http://h/a", "b", ":@/", "%?#");
}

TEST(UrlQuery, HoldsExactlyItsCharacters) {
    expectAllowedCharacters("http://h/?a", "b", ":@/?", "%#");
}

TEST(UrlFragment, HoldsExactlyItsCharacters) {
    expectAllowedCharacters("http://h/#a", "b", ":@/?", "%");
}

TEST(UrlText, ForbiddenCharactersAreShownPrintably) {
    EXPECT_EQ(errorOf("http://h/a|b"), "'|' at position 3 of the path must be percent-encoded");
    EXPECT_EQ(errorOf("http://h/a b"), "a space at position 3 of the path must be percent-encoded");
    EXPECT_EQ(errorOf("http://h/\n"), "byte 0x0A at position 2 of the path must be percent-encoded");
    EXPECT_EQ(errorOf(std::string("http://h/\0", 10)), "byte 0x00 at position 2 of the path must be percent-encoded");
    EXPECT_EQ(errorOf("http://h/\x7F"), "byte 0x7F at position 2 of the path must be percent-encoded");
    EXPECT_EQ(errorOf("http://h/?\xC3\xA9"), "byte 0xC3 at position 1 of the query must be percent-encoded");
    EXPECT_EQ(errorOf("http://h/#a#"), "'#' at position 2 of the fragment must be percent-encoded");
}

TEST(UrlEscapes, NeedTwoHexadecimalDigits) {
    EXPECT_EQ(errorOf("http://h/%"), "'%' at position 2 of the path is not followed by two hexadecimal digits");
    EXPECT_EQ(errorOf("http://h/%4"), "'%' at position 2 of the path is not followed by two hexadecimal digits");
    EXPECT_EQ(errorOf("http://h/%4g"), "'%' at position 2 of the path is not followed by two hexadecimal digits");
    EXPECT_EQ(errorOf("http://h/%g4"), "'%' at position 2 of the path is not followed by two hexadecimal digits");
    EXPECT_EQ(errorOf("http://h/%%41"), "'%' at position 2 of the path is not followed by two hexadecimal digits");
    EXPECT_EQ(errorOf("http://h/%41%4"), "'%' at position 5 of the path is not followed by two hexadecimal digits");
    EXPECT_EQ(errorOf("http://h/?%4"), "'%' at position 1 of the query is not followed by two hexadecimal digits");
    EXPECT_EQ(errorOf("http://h/#%4"), "'%' at position 1 of the fragment is not followed by two hexadecimal digits");
}

TEST(UrlEscapes, DoNotReachAcrossComponents) {
    EXPECT_EQ(errorOf("http://h/%4?1"), "'%' at position 2 of the path is not followed by two hexadecimal digits");
}

TEST(UrlEscapes, EveryByteDecodes) {
    for (unsigned int code = 0; code < 256; ++code) {
        for (const char* digits : {"0123456789abcdef", "0123456789ABCDEF"}) {
            const std::string escape{'%', digits[code >> 4U], digits[code & 0xFU]};
            EXPECT_EQ(parsed("http://h/" + escape, false).getDecodedPath(), std::string("/") + static_cast<char>(code))
                << escape;
        }
    }
}

TEST(UrlEscapes, DecodeOnce) {
    EXPECT_EQ(parsed("http://h/%2541").getDecodedPath(), "/%41");
    EXPECT_EQ(parsed("http://h/a+b").getDecodedPath(), "/a+b");
    EXPECT_EQ(parsed("http://h/%2e%2E/%2f").getDecodedPath(), "/..//");
    EXPECT_EQ(parsed("http://h/%00").getDecodedPath(), std::string("/\0", 2));
}

TEST(UrlEscapes, OnlyThePathIsDecoded) {
    const Url url = parsed("http://h/%41?%41#%41");
    EXPECT_EQ(url.getPath(), "/%41");
    EXPECT_EQ(url.getQuery(), "%41");
    EXPECT_EQ(url.getFragment(), "%41");
}

TEST(UrlUtf8, ValidSequencesPass) {
    EXPECT_EQ(parsed("http://h/%C3%A9?%E2%82%AC#%F0%9F%98%80").getDecodedPath(), "/\xC3\xA9");
}

TEST(UrlUtf8, InvalidSequencesNameThePlaceInTheEncodedText) {
    EXPECT_EQ(errorOf("http://h/%FF"), "the escape at position 2 of the path does not decode to valid UTF-8");
    EXPECT_EQ(errorOf("http://h/a%C3%A9b%C0%80"),
              "the escape at position 10 of the path does not decode to valid UTF-8");
    EXPECT_EQ(errorOf("http://h/%C3x"), "the escape at position 2 of the path does not decode to valid UTF-8");
    EXPECT_EQ(errorOf("http://h/?a=%ED%A0%80"), "the escape at position 3 of the query does not decode to valid UTF-8");
    EXPECT_EQ(errorOf("http://h/#%80"), "the escape at position 1 of the fragment does not decode to valid UTF-8");
}

TEST(UrlUtf8, SequencesDoNotReachAcrossComponents) {
    EXPECT_EQ(errorOf("http://h/%C3?%A9"), "the escape at position 2 of the path does not decode to valid UTF-8");
}

TEST(UrlUtf8, IsOnlyAskedForWhenStrict) {
    EXPECT_EQ(errorOf("http://h/%FF?%FF#%FF", false), "");
    EXPECT_EQ(parsed("http://h/%FF", false).getDecodedPath(), "/\xFF");
    EXPECT_NE(errorOf("http://h/\xFF", false), "");
}

TEST(UrlLength, BoundsThePartAfterTheAuthority) {
    const std::string authority = "http://user@a-rather-long-host-name:8181";
    for (const std::string& rest : {std::string("/234567890"), std::string("/23?56#890"), std::string("?234567890")}) {
        Url url;
        std::string error;
        EXPECT_TRUE(url.fromEncodedUtf8String(authority + rest, &error, true, 11)) << rest;
        EXPECT_TRUE(url.fromEncodedUtf8String(authority + rest, &error, true, rest.size())) << rest;
        EXPECT_FALSE(url.fromEncodedUtf8String(authority + rest, &error, true, rest.size() - 1)) << rest;
        EXPECT_EQ(error, "the part after the host is " + std::to_string(rest.size()) +
                             " bytes long, more than the allowed " + std::to_string(rest.size() - 1));
    }
}

TEST(UrlLength, TargetOf4096BytesParses) {
    const auto accepts = [](std::size_t length) {
        Url url;
        return url.fromEncodedUtf8String("http://127.0.0.1:80/" + std::string(length - 1, 'a'), nullptr, true, 4096);
    };
    EXPECT_TRUE(accepts(4095));
    EXPECT_TRUE(accepts(4096));
    EXPECT_FALSE(accepts(4097));
}

TEST(UrlLength, ZeroAllowsTheAuthorityAlone) {
    Url url;
    EXPECT_TRUE(url.fromEncodedUtf8String("http://h", nullptr, true, 0));
    EXPECT_FALSE(url.fromEncodedUtf8String("http://h/", nullptr, true, 0));
}

TEST(HttpUrl, TakesHttpAndHttps) {
    EXPECT_EQ(httpErrorOf("http://h/"), "");
    EXPECT_EQ(httpErrorOf("HTTPS://h/"), "");
    EXPECT_EQ(httpErrorOf("ftp://h/"), "the scheme is 'ftp', neither http nor https");
    EXPECT_EQ(httpErrorOf("httpx://h/"), "the scheme is 'httpx', neither http nor https");
}

TEST(HttpUrl, RefusesUserInformation) {
    EXPECT_EQ(httpErrorOf("http://user@h/"), "the '@' before the host is not allowed in an http URL");
    EXPECT_EQ(httpErrorOf("http://@h/"), "the '@' before the host is not allowed in an http URL");
    EXPECT_EQ(httpErrorOf("http://h/@"), "");
}

TEST(HttpUrl, RequestTargetCannotNameAnotherHost) {
    EXPECT_EQ(httpErrorOf("http://127.0.0.1:80@evil/"), "the '@' before the host is not allowed in an http URL");
}

TEST(HttpUrl, HasAHost) {
    EXPECT_EQ(httpErrorOf("http:///p"), "the host is missing");
    EXPECT_EQ(httpErrorOf("http://:80/"), "the host is missing");
}

TEST(HttpUrl, RefusalEmptiesEveryComponent) {
    HttpUrl url;
    ASSERT_FALSE(url.fromEncodedUtf8String("ftp://user@h:1/p?q#f", nullptr, true, Unlimited));
    EXPECT_FALSE(url.isValid());
    EXPECT_EQ(url.getScheme() + url.getHost() + url.getPath() + url.getQuery() + url.getFragment(), "");
}

TEST(HttpUrl, GenericErrorsComeFirst) {
    EXPECT_EQ(httpErrorOf("ftp://h/ "), "a space at position 2 of the path must be percent-encoded");
}

TEST(HttpUrl, IsAUrlWithAVirtualDestructor) {
    std::unique_ptr<Url> url = std::make_unique<HttpUrl>();
    EXPECT_FALSE(url->fromEncodedUtf8String("ftp://h", nullptr, true, Unlimited));
    EXPECT_TRUE(url->fromEncodedUtf8String("http://h", nullptr, true, Unlimited));
}

TEST(HttpUrl, CopiesAndMovesKeepTheComponents) {
    HttpUrl url;
    ASSERT_TRUE(url.fromEncodedUtf8String("http://h/p", nullptr, true, Unlimited));
    HttpUrl copy(url);
    HttpUrl assigned;
    assigned = copy;
    EXPECT_EQ(assigned.getPath(), "/p");
    HttpUrl moved(std::move(copy));
    HttpUrl moveAssigned;
    moveAssigned = std::move(moved);
    EXPECT_EQ(moveAssigned.getPath(), "/p");
}

} // namespace
