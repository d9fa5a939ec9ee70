#include "app/request/Accept.h"

#include <gtest/gtest.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Offers = std::vector<std::string_view>;
using Choose = std::string (*)(std::optional<std::string_view>, std::span<const std::string_view>);

struct Case {
    std::optional<std::string_view> accept;
    Offers offers;
    std::string_view expected;
};

void expectAll(Choose choose, const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        std::string offers;
        for (const std::string_view offer : c.offers) {
            offers += std::string(offer) + " ";
        }
        EXPECT_EQ(choose(c.accept, c.offers), c.expected) << c.accept.value_or("(none)") << " : " << offers;
    }
}

const Offers Pages{"application/json", "text/html", "text/plain"};

TEST(Accept, TheMostSpecialWishHasTheSay) {
    expectAll(vireo::impl::chooseMediaType,
              {
                  {std::nullopt, Pages, "application/json"},
                  {"", Pages, "application/json"},
                  {" ", Pages, "application/json"},
                  {std::nullopt, {}, ""},
                  {"text/html", Pages, "text/html"},
                  {"TEXT/HTML", Pages, "text/html"},
                  {"text/*", Pages, "text/html"},
                  {"*/*", Pages, "application/json"},
                  {"image/png", Pages, ""},
                  {"text/html;q=0.5, */*;q=0.1", Pages, "text/html"},
                  {"text/*, text/html;q=0.5", Pages, "text/plain"},
                  {"text/*;q=0.9, text/html;q=0, */*;q=0.1", Pages, "text/plain"},
                  {"*/*;q=0", Pages, ""},
                  {"application/json;q=0, */*", Pages, "text/html"},
                  {"text/html,application/xhtml+xml,application/xml;q=0.9,image/webp,*/*;q=0.8", Pages, "text/html"},
                  {"text/html/x", Pages, ""},
                  {"text", Pages, ""},
                  {"*", Pages, ""},
                  {"*/json", Pages, ""},
              });
}

TEST(Accept, WeightsHaveThreeDigits) {
    expectAll(vireo::impl::chooseMediaType, {
                                                {"text/html;q=0.001, text/plain;q=0.002", Pages, "text/plain"},
                                                {"text/html;q=1.000, text/plain;q=0.999", Pages, "text/html"},
                                                {"text/html;Q=0.5, text/plain;q=0.6", Pages, "text/plain"},
                                                {"text/html;q=1., text/plain;q=0.", Pages, "text/html"},
                                                {"text/html ; q=0.3 , text/plain ;q=0.4", Pages, "text/plain"},
                                                // What the RFC does not allow, and old clients send all the same.
                                                {"text/html;q=0.1234, text/plain;q=0.12", Pages, "text/html"},
                                                {"text/html;q=0.1009, text/plain;q=0.101", Pages, "text/plain"},
                                                {"text/html;q=.5, text/plain;q=0.1", Pages, "text/html"},
                                                {"image/gif, *; q=.2, */*; q=.2", Pages, "application/json"},
                                                // No weight: no wish.
                                                {"text/html;q=1.001, text/plain;q=0.1", Pages, "text/plain"},
                                                {"text/html;q=0.123x, text/plain;q=0.1", Pages, "text/plain"},
                                                {"text/html;q=., text/plain;q=0.1", Pages, "text/plain"},
                                                {"text/html;q=00.5, text/plain;q=0.1", Pages, "text/plain"},
                                                {"text/html;q=, text/plain;q=0.1", Pages, "text/plain"},
                                                {"text/html;q=2, text/plain;q=0.1", Pages, "text/plain"},
                                                {"text/html;q=-1, text/plain;q=0.1", Pages, "text/plain"},
                                                {"text/html;q=0x1, text/plain;q=0.1", Pages, "text/plain"},
                                            });
}

TEST(Accept, ParametersAreToBeThere) {
    const Offers levels{"text/html", "text/html;level=1", "text/html; level=2"};
    expectAll(vireo::impl::chooseMediaType,
              {
                  {"text/html;level=1", levels, "text/html;level=1"},
                  {"text/html;q=0.3, text/html;level=2;q=0.4", levels, "text/html; level=2"},
                  {"text/html, text/html;LEVEL=1;q=0.4", levels, "text/html"},
                  {"text/html;level=3", levels, ""},
                  {"text/html;x=\"a,b;q=0\";q=0.9, */*;q=0.1", levels, "text/html"},
                  {"text/plain;x=\"a\\\",b\", text/html;level=1", levels, "text/html;level=1"},
                  {"text/plain;x=\"never ends, text/html", levels, ""},
              });
}

TEST(Accept, OfEqualWishesTheServersOrderCounts) {
    expectAll(vireo::impl::chooseMediaType,
              {
                  {"text/plain, text/html", Pages, "text/html"},
                  {"text/html;q=0.2, text/html;q=0.7, text/plain;q=0.5", Pages, "text/html"},
                  {",,text/plain,,", Pages, "text/plain"},
              });
}

TEST(Accept, LanguagesFitTheirRegions) {
    expectAll(vireo::impl::chooseLanguage,
              {
                  {std::nullopt, {"en", "de"}, "en"},
                  {"de", {"en", "de"}, "de"},
                  {"de-AT, en;q=0.9", {"en", "de"}, "de"},
                  {"de", {"en", "de-AT"}, "de-AT"},
                  {"DE-at", {"en", "de-AT", "de"}, "de-AT"},
                  {"de-AT, de;q=0.5", {"de", "de-AT"}, "de-AT"},
                  {"de;q=0, *", {"de-AT", "de", "fr"}, "fr"},
                  {"den", {"de"}, ""},
                  {"de", {"den"}, ""},
                  {"*;q=0.1, fr", {"en", "fr"}, "fr"},
                  {"en-US;q=0.3, en-GB;q=0.8, fr;q=0.5", {"fr", "en"}, "en"},
                  {"en;q=0.1, en-GB;q=0.9, de;q=0.5", {"de", "en-GB-oxendict"}, "en-GB-oxendict"},
                  {"it", {"en", "de"}, ""},
              });
}

TEST(Accept, IdentityIsTakenUnlessItIsRefused) {
    const Offers codings{"br", "gzip", "identity"};
    expectAll(vireo::impl::chooseEncoding, {
                                               {std::nullopt, codings, "identity"},
                                               {std::nullopt, {"gzip"}, "gzip"},
                                               {"", codings, "identity"},
                                               {"", {"gzip"}, ""},
                                               {"gzip", codings, "gzip"},
                                               {"GZIP;q=0.5", codings, "gzip"},
                                               {"gzip, br", codings, "br"},
                                               {"gzip;q=0.001", codings, "gzip"},
                                               {"identity, gzip;q=0.5", codings, "identity"},
                                               {"gzip;q=0, br;q=0", codings, "identity"},
                                               {"*", codings, "br"},
                                               {"gzip, *;q=0", codings, "gzip"},
                                               {"*;q=0", codings, ""},
                                               {"identity;q=0", codings, ""},
                                               {"identity;q=0, gzip;q=0.1", codings, "gzip"},
                                               {"deflate", codings, "identity"},
                                               {"*;q=0, identity", codings, "identity"},
                                           });
}

} // namespace
