#include "app/body/FormReader.h"

#include "app/body/BodyReader.h"
#include "app/body/FakeBody.h"
#include "app/body/FormState.h"
#include "support/Pattern.h"
#include "support/TestFile.h"
#include "vireo/app/ClientGone.h"
#include "vireo/app/HttpError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using testing::ElementsAre;
using vireo::ClientGone;
using vireo::Form;
using vireo::FormOptions;
using vireo::FormPart;
using vireo::FormParts;
using vireo::HttpError;
using vireo::impl::BodyReader;
using vireo::impl::FormLimits;
using vireo::impl::FormReader;
using vireo::impl::FormSteps;
using vireotest::contentOf;
using vireotest::FakeBody;
using vireotest::TestDirectory;

/// Decodes forms of a language that is easily cut: `<name>` begins a field, `[name]` a file, `!` is malformed, `$` is
/// the end, and all else is content.
class FakeDecoder {
public:
    FormSteps steps() {
        return {[this](std::string_view bytes, ql::http::FormReceiver& receiver) { return decode(bytes, receiver); },
                [this](ql::http::FormReceiver& /*receiver*/) { return hasEnded_; }};
    }

private:
    bool decode(std::string_view bytes, ql::http::FormReceiver& receiver) {
        for (const char& c : bytes) {
            if (c == '!') {
                return false;
            }
            if (c == '$') {
                hasEnded_ = true;
            } else if (c == '<' || c == '[') {
                isInName_ = true;
                name_.clear();
            } else if (c == '>' || c == ']') {
                isInName_ = false;
                const bool isFile = c == ']';
                receiver.onPart(name_, isFile && name_ != "none" ? name_ + ".txt" : "", isFile ? "text/plain" : "",
                                isFile);
            } else if (isInName_) {
                name_ += c;
            } else {
                receiver.onBytes({&c, 1});
            }
        }
        return true;
    }

    std::string name_;
    bool isInName_ = false;
    bool hasEnded_ = false;
};

/// A form that was fed in pieces.
struct Fed {
    explicit Fed(const std::vector<std::string_view>& pieces, bool isCut = false) {
        for (const std::string_view piece : pieces) {
            fake.feed(piece);
        }
        if (isCut) {
            fake.cut();
        } else {
            fake.end();
        }
    }

    std::unique_ptr<Form> form(const FormOptions& options = {}) {
        return vireo::impl::readForm(reader, FormLimits::of(options));
    }

    FakeBody fake;
    BodyReader body{fake.device(), FakeBody::limits(), nullptr};
    FakeDecoder decoder;
    FormReader reader{body, decoder.steps()};
};

int statusOf(Fed& fed, const FormOptions& options = {}) {
    try {
        fed.form(options);
    } catch (const HttpError& error) {
        return error.status();
    }
    return 0;
}

constexpr std::string_view Example = "<a>one<b><a>two[f]file content[g]$";

TEST(FormReaderTest, FieldsAndFilesCutAnywhereAreTheSame) {
    const TestDirectory directory;
    const FormOptions options = FormOptions().directory(directory.path().string());
    for (std::size_t cut = 0; cut <= Example.size(); ++cut) {
        Fed fed({Example.substr(0, cut), Example.substr(cut)});
        const std::unique_ptr<Form> form = fed.form(options);
        EXPECT_EQ((*form)["a"], "one");
        EXPECT_EQ((*form)["b"], "");
        EXPECT_THAT(form->all("a"), ElementsAre("one", "two"));
        ASSERT_EQ(form->files().size(), 2U);
        EXPECT_EQ(form->file("f").fileName(), "f.txt");
        EXPECT_EQ(form->file("f").contentType(), "text/plain");
        EXPECT_EQ(contentOf(form->file("f").path()), "file content");
        EXPECT_EQ(form->file("g").size(), 0U);
    }
    EXPECT_EQ(directory.entries(), 0U);
}

TEST(FormReaderTest, PartsComeOneAfterTheOther) {
    Fed fed({Example});
    FormParts& parts = fed.reader.parts();
    FormPart* part = parts.next();
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(part->name(), "a");
    EXPECT_FALSE(part->isFile());
    EXPECT_EQ(part->read(), "one");
    EXPECT_EQ(part->read(), std::nullopt);
    EXPECT_EQ(part->read(), std::nullopt);
    ASSERT_NE(part = parts.next(), nullptr);
    EXPECT_EQ(part->name(), "b");
    EXPECT_EQ(part->read(), std::nullopt);
    ASSERT_NE(part = parts.next(), nullptr); // and is passed over
    ASSERT_NE(part = parts.next(), nullptr);
    EXPECT_TRUE(part->isFile());
    EXPECT_EQ(part->read(), "file content");
    ASSERT_NE(part = parts.next(), nullptr);
    EXPECT_EQ(part->fileName(), "g.txt");
    EXPECT_EQ(parts.next(), nullptr);
    EXPECT_EQ(parts.next(), nullptr);
}

TEST(FormReaderTest, ContentIsGivenAsItComes) {
    FakeBody fake;
    BodyReader body(fake.device(), FakeBody::limits(), nullptr);
    FakeDecoder decoder;
    FormReader reader(body, decoder.steps());
    fake.feed("[f]ab");
    FormPart* const part = reader.parts().next();
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(part->read(), "ab");
    fake.feed("c$");
    fake.end();
    EXPECT_EQ(part->read(), "c");
    EXPECT_EQ(part->read(), std::nullopt);
}

TEST(FormReaderTest, FileThatWasNotChosenIsNone) {
    Fed fed({"[none]<a>b$"});
    const std::unique_ptr<Form> form = fed.form();
    EXPECT_TRUE(form->files().empty());
    EXPECT_EQ((*form)["a"], "b");
}

TEST(FormReaderTest, MalformedFormIsABadRequestAgainAndAgain) {
    Fed fed({"<a>b!"});
    EXPECT_EQ(statusOf(fed), 400);
    EXPECT_EQ(statusOf(fed), 400);
    Fed unended({"<a>b"});
    EXPECT_EQ(statusOf(unended), 400);
}

TEST(FormReaderTest, ClientThatGoesIsNoBadRequest) {
    const TestDirectory directory;
    for (std::size_t length = 0; length < Example.size(); ++length) {
        Fed fed({Example.substr(0, length)}, true);
        EXPECT_THROW(fed.form(FormOptions().directory(directory.path().string())), ClientGone);
    }
    EXPECT_EQ(directory.entries(), 0U);
}

TEST(FormReaderTest, DecoderThatEndsWithTheExchangeIsNoBadRequest) {
    FakeBody fake;
    BodyReader body(fake.device(), FakeBody::limits(), nullptr);
    const auto fail = [&fake](auto&&... /*arguments*/) {
        fake.cut();
        return false;
    };
    FormReader reader(body, {fail, fail});
    fake.feed("<a>b");
    EXPECT_THROW(reader.parts().next(), ClientGone);
    EXPECT_THROW(reader.parts().next(), ClientGone);
}

TEST(FormReaderTest, LimitsHoldToTheLast) {
    const TestDirectory directory;
    const auto options = [&directory] { return FormOptions().directory(directory.path().string()); };
    Fed fits({"<a>123<b>4[f]12345[g]$"});
    EXPECT_EQ(statusOf(fits, options().maxFields(2).maxFieldBytes(3).maxFiles(2).maxFileBytes(5)), 0);
    Fed fields({"<a><b><c>$"});
    EXPECT_EQ(statusOf(fields, options().maxFields(2)), 413);
    Fed value({"<a>1234$"});
    EXPECT_EQ(statusOf(value, options().maxFieldBytes(3)), 413);
    Fed name({"<1234>$"});
    EXPECT_EQ(statusOf(name, options().maxFieldBytes(3)), 413);
    Fed files({"[a]1[b]$"});
    EXPECT_EQ(statusOf(files, options().maxFiles(1)), 413);
    Fed file({"[a]123456$"});
    EXPECT_EQ(statusOf(file, options().maxFileBytes(5)), 413);
    EXPECT_EQ(directory.entries(), 0U);
}

TEST(FormReaderTest, FilesKeepNoDescriptor) {
    const TestDirectory directory;
    Fed fed({"[f]content$"});
    const std::unique_ptr<Form> form = fed.form(FormOptions().directory(directory.path().string()));
    EXPECT_FALSE(vireotest::isOpen(form->file("f").path()));
    form->file("f").keepAs((directory.path() / "kept").string());
    EXPECT_EQ(contentOf(directory.path() / "kept"), "content");
}

TEST(FormReaderTest, DecoderGetsSmallSlices) {
    FakeBody fake;
    BodyReader body(fake.device(), FakeBody::limits(), nullptr);
    std::string decoded;
    FormReader reader(body, {[&decoded](std::string_view bytes, auto& /*receiver*/) {
                                 EXPECT_LE(bytes.size(), 4096U);
                                 decoded += bytes;
                                 return true;
                             },
                             [](auto& /*receiver*/) { return true; }});
    const std::string content = vireotest::pattern(100000);
    fake.feed(content);
    fake.end();
    EXPECT_EQ(reader.parts().next(), nullptr);
    EXPECT_TRUE(decoded == content);
}

TEST(FormReaderTest, TextsAreMadeUtf8) {
    Fed fed({"<n\xFF>a\xC3$"});
    EXPECT_EQ((*fed.form())["n\xEF\xBF\xBD"], "a\xEF\xBF\xBD");
}

TEST(FormReaderTest, LimitIsNamed) {
    Fed fed({"<a>1234$"});
    try {
        fed.form(FormOptions().maxFieldBytes(3));
        ADD_FAILURE();
    } catch (const HttpError& error) {
        EXPECT_STREQ(error.what(), "a field of a form may have this many bytes: 3");
    }
}

TEST(FormReaderTest, KeptFileStaysAndOthersGo) {
    const TestDirectory directory;
    {
        Fed fed({"[f]content[g]other$"});
        const std::unique_ptr<Form> form = fed.form(FormOptions().directory(directory.path().string()));
        form->file("f").keepAs((directory.path() / "kept").string());
        EXPECT_EQ(form->file("f").path(), (directory.path() / "kept").string());
        EXPECT_THROW(form->file("f").keepAs("again"), std::logic_error);
    }
    EXPECT_EQ(contentOf(directory.path() / "kept"), "content");
    EXPECT_EQ(directory.entries(), 1U);
}

TEST(FormReaderTest, FieldsComeOneAfterTheOther) {
    Fed fed({"<b>x<a>one[f]file<b>$"});
    std::string text;
    const std::unique_ptr<Form> form = fed.form();
    for (const auto& [name, value] : form->fields()) {
        text += name + "=" + value + ";";
    }
    EXPECT_EQ(text, "b=x;a=one;b=;");
}

TEST(FormReaderTest, FieldsAsValues) {
    Fed fed({"<n>7<agree>on<empty><word>seven$"});
    const std::unique_ptr<Form> form = fed.form();
    EXPECT_EQ(form->get<int>("n"), 7);
    EXPECT_EQ(form->get("n", 1), 7);
    EXPECT_EQ(form->get("missing", 1), 1);
    EXPECT_TRUE(form->get("agree", false));
    EXPECT_FALSE(form->get("missing", false));
    EXPECT_EQ(form->get("missing", "text"), "text");
    EXPECT_EQ(form->get("missing", std::string("text")), "text");
    EXPECT_EQ(form->get("empty", "text"), "");
    EXPECT_TRUE(form->has("empty"));
    EXPECT_FALSE(form->has("missing"));
    const auto refusal = [&form](const char* name) {
        try {
            return "none, but " + std::to_string(form->get<int>(name));
        } catch (const HttpError& error) {
            return std::to_string(error.status()) + " " + error.what();
        }
    };
    EXPECT_EQ(refusal("missing"), "400 the form has no field \"missing\"");
    EXPECT_EQ(refusal("word"), "400 the field \"word\" of the form is not right");
    EXPECT_THROW(form->get("word", 1), HttpError);
}

TEST(FormReaderTest, MissingOnesAreBadRequests) {
    Fed fed({"<a>b$"});
    const std::unique_ptr<Form> form = fed.form();
    EXPECT_THROW((*form)["x"], HttpError);
    EXPECT_THROW(form->file("a"), HttpError);
    EXPECT_EQ(form->get("a", "c"), "b");
    EXPECT_TRUE(form->all("x").empty());
}

} // namespace
