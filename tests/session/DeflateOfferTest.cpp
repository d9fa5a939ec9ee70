#include "session/DeflateOffer.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

using ql::impl::chooseDeflate;
using ql::impl::DeflateAgreement;
using ql::impl::DeflateSettings;
using ql::impl::ExtensionOffer;
using ql::impl::parseExtensions;

namespace {

const std::string Pmd = "permessage-deflate";

/// What is read, written again: a quoted value shows as it is meant.
std::string read(std::string_view field) {
    const std::optional<std::vector<ExtensionOffer>> offers = parseExtensions(field);
    if (!offers) {
        return "malformed";
    }
    std::string text;
    for (const ExtensionOffer& offer : *offers) {
        text += (text.empty() ? "" : ",") + offer.name;
        for (const auto& parameter : offer.parameters) {
            text += ";" + parameter.name + (parameter.value ? "=" + *parameter.value : "");
        }
    }
    return text;
}

/// The answer, or an empty text without an agreement.
std::string answerTo(const std::string& field, const DeflateSettings& settings = {}) {
    const std::optional<std::vector<ExtensionOffer>> offers = parseExtensions(field);
    if (!offers) {
        return "malformed";
    }
    const std::optional<DeflateAgreement> agreement = chooseDeflate(*offers, settings);
    return agreement ? agreement->answer : "";
}

DeflateAgreement agreementOn(const std::string& field, const DeflateSettings& settings = {}) {
    return chooseDeflate(parseExtensions(field).value(), settings).value();
}

struct Case {
    std::string field;
    std::string expected;

    friend std::ostream& operator<<(std::ostream& out, const Case& row) { return out << row.field; }
};

} // namespace

TEST(ParseExtensions, ReadsListsOfExtensionsAndTheirParameters) {
    for (const Case& row : std::vector<Case>{
             {"", ""},
             {" \t", ""},
             {"a", "a"},
             {"a,b", "a,b"},
             {" a , b ", "a,b"},
             {",, a ,, b ,", "a,b"},
             {"a;b", "a;b"},
             {"a ; b = c ;\td=\te", "a;b=c;d=e"},
             {"a;b=c,d;e", "a;b=c,d;e"},
             {"a;b=\"c\"", "a;b=c"},
             {"a;b=\"c\\d\"", "a;b=cd"},
             {"a;b=\"\\c\\d\";e", "a;b=cd;e"},
             {"a;b=\"c\" , d", "a;b=c,d"},
             {"a;b;b;b=1", "a;b;b;b=1"},
             {"!#$%&'*+-.^_`|~19AZ", "!#$%&'*+-.^_`|~19AZ"},
         }) {
        EXPECT_EQ(read(row.field), row.expected) << row;
    }
}

TEST(ParseExtensions, RefusesWhatIsNoList) {
    for (const std::string field : {"a b",      "a;",          "a;;b",        ";a",         "=",
                                    "a=b",      "a;=b",        "a;b=",        "a;b=,c",     "a;b=c d",
                                    "a;b=c=d",  "a;b=\"",      "a;b=\"c",     "a;b=\"c\\",  "a;b=\"c\\\"",
                                    "a;b=\"\"", "a;b=\"c d\"", "a;b=\"c,d\"", "a;b=\"c\"d", "a;b=\"c\"\"d\"",
                                    "\"a\"",    "a;\"b\"",     "a(b)",        "a;b=(c)",    "a\r",
                                    "a;b=\x01", "a\x7F",       "\xC3\xA9",    "a,b;",       "a/b",
                                    "a:b"}) {
        EXPECT_EQ(read(field), "malformed") << field;
    }
    EXPECT_EQ(read(std::string_view("a\0", 2)), "malformed");
}

TEST(ChooseDeflate, AnswersWhatIsOffered) {
    for (const Case& row : std::vector<Case>{
             {"", ""},
             {"; server_no_context_takeover", "; server_no_context_takeover"},
             {"; client_no_context_takeover", "; client_no_context_takeover"},
             {"; client_no_context_takeover; server_no_context_takeover",
              "; server_no_context_takeover; client_no_context_takeover"},
             {"; server_max_window_bits=8", "; server_max_window_bits=8"},
             {"; server_max_window_bits=9", "; server_max_window_bits=9"},
             {"; server_max_window_bits=14", "; server_max_window_bits=14"},
             {"; server_max_window_bits=15", "; server_max_window_bits=15"},
             {"; server_max_window_bits=\"10\"", "; server_max_window_bits=10"},
             {"; client_max_window_bits", ""},
             {"; client_max_window_bits=8", "; client_max_window_bits=8"},
             {"; client_max_window_bits=9", "; client_max_window_bits=9"},
             {"; client_max_window_bits=15", ""},
             {"; client_max_window_bits=11; server_max_window_bits=12; client_no_context_takeover; "
              "server_no_context_takeover",
              "; server_no_context_takeover; client_no_context_takeover; server_max_window_bits=12; "
              "client_max_window_bits=11"},
         }) {
        EXPECT_EQ(answerTo(Pmd + row.field), Pmd + row.expected) << row;
    }
}

TEST(ChooseDeflate, DeclinesInvalidOffers) {
    for (const std::string side : {"server", "client"}) {
        for (const std::string value : {"=1", "=0", "=true", "=\"1\""}) {
            EXPECT_EQ(answerTo(Pmd + "; " + side + "_no_context_takeover" + value), "") << side << value;
        }
        for (const std::string value : {"0", "7", "16", "99", "08", "015", "+10", "-10", "10.0", "abc", "1O", "0xA",
                                        "266", "4294967306", "18446744073709551626", "\"7\"", "\"010\""}) {
            EXPECT_EQ(answerTo(Pmd + "; " + side + "_max_window_bits=" + value), "") << side << value;
        }
    }
    for (const std::string& field :
         {Pmd + "; server_max_window_bits", Pmd + "; unknown", Pmd + "; unknown=10",
          Pmd + "; unknown; client_max_window_bits", Pmd + "; server_no_context_takeover; unknown",
          Pmd + "; Server_No_Context_Takeover", Pmd + "; server_no_context_takeover; server_no_context_takeover",
          Pmd + "; client_no_context_takeover; client_max_window_bits; client_no_context_takeover",
          Pmd + "; server_max_window_bits=10; server_max_window_bits=10",
          Pmd + "; client_max_window_bits; client_max_window_bits=10", std::string("permessage-deflat"), Pmd + "s",
          "x-" + Pmd, std::string("deflate"), std::string()}) {
        EXPECT_EQ(answerTo(field), "") << field;
    }
}

TEST(ChooseDeflate, TakesTheFirstOfferThatCanBeMet) {
    const std::string window = "; server_max_window_bits=10";
    for (const Case& row : std::vector<Case>{
             {"x-unknown, " + Pmd, Pmd},
             {Pmd + ", x-unknown; a=b", Pmd},
             {Pmd + "; unknown, " + Pmd + window, Pmd + window},
             {Pmd + window + ", " + Pmd, Pmd + window},
             {Pmd + ", " + Pmd + window, Pmd},
             {Pmd + "; unknown; server_no_context_takeover, " + Pmd, Pmd},
             {Pmd + "; client_max_window_bits=7, " + Pmd + "; server_max_window_bits=16, " + Pmd + window,
              Pmd + window},
         }) {
        EXPECT_EQ(answerTo(row.field), row.expected) << row;
    }
}

TEST(ChooseDeflate, AsksForWhatTheSettingsSay) {
    DeflateSettings settings;
    settings.serverNoContextTakeover = true;
    settings.clientNoContextTakeover = true;
    settings.serverMaxWindowBits = 11;
    EXPECT_EQ(answerTo(Pmd, settings),
              Pmd + "; server_no_context_takeover; client_no_context_takeover; server_max_window_bits=11");
    EXPECT_EQ(agreementOn(Pmd + "; server_max_window_bits=9", settings).serverWindowBits, 9);
    EXPECT_EQ(agreementOn(Pmd + "; server_max_window_bits=12", settings).serverWindowBits, 11);
}

TEST(ChooseDeflate, DeclinesAClientThatCannotLimitItsWindowAsWanted) {
    DeflateSettings settings;
    settings.clientMaxWindowBits = 11;
    EXPECT_EQ(answerTo(Pmd, settings), "");
    EXPECT_EQ(answerTo(Pmd + "; client_max_window_bits", settings), Pmd + "; client_max_window_bits=11");
    EXPECT_EQ(answerTo(Pmd + "; client_max_window_bits=13", settings), Pmd + "; client_max_window_bits=11");
    EXPECT_EQ(answerTo(Pmd + "; client_max_window_bits=9", settings), Pmd + "; client_max_window_bits=9");
    EXPECT_EQ(answerTo(Pmd + ", " + Pmd + "; client_max_window_bits", settings), Pmd + "; client_max_window_bits=11");
}

TEST(ChooseDeflate, AgreesOnWhatItAnswers) {
    const DeflateAgreement plain = agreementOn(Pmd);
    EXPECT_EQ(plain.serverWindowBits, 15);
    EXPECT_EQ(plain.clientWindowBits, 15);
    EXPECT_FALSE(plain.serverNoContextTakeover);
    EXPECT_FALSE(plain.clientNoContextTakeover);

    const DeflateAgreement all = agreementOn(Pmd + "; client_max_window_bits=10; server_max_window_bits=8; "
                                                   "server_no_context_takeover; client_no_context_takeover");
    EXPECT_EQ(all.serverWindowBits, 8);
    EXPECT_EQ(all.clientWindowBits, 10);
    EXPECT_TRUE(all.serverNoContextTakeover);
    EXPECT_TRUE(all.clientNoContextTakeover);
}
