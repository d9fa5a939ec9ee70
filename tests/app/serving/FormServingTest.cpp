#include "support/Pattern.h"
#include "support/RawClient.h"
#include "support/TestFile.h"
#include "support/TestLog.h"
#include "vireo/app.h"
#include "vireo/app/TestClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

// Forms over the wire.

namespace {

using testing::HasSubstr;
using vireo::App;
using vireo::FormOptions;
using vireo::Request;
using vireo::Response;
using vireo::TestClient;
using vireo::TestRequest;
using vireotest::contentOf;
using vireotest::pattern;
using vireotest::post;
using vireotest::RawClient;
using vireotest::TestDirectory;

/// A field and a file.
std::string formOf(const std::string& file) {
    return "--XX\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\nvalue\r\n--XX\r\n"
           "Content-Disposition: form-data; name=\"f\"; filename=\"n\"\r\nContent-Type: text/plain\r\n\r\n" +
           file + "\r\n--XX--\r\n";
}

class FormServing : public testing::Test {
protected:
    FormServing() {
        app_.post("/form", [this](Request& request, Response& response) {
            vireo::Form& form = request.form(options());
            std::string text = "a=" + form.get("a", "none") + " all=" + std::to_string(form.all("a").size());
            for (vireo::FormFile& file : form.files()) {
                text += " " + file.name() + "/" + file.fileName() + "/" + file.contentType() + "/" +
                        std::to_string(file.size());
                file.keepAs((directory_.path() / ("kept-" + file.name())).string());
            }
            response.text(text);
        });
        app_.post("/parts", [](Request& request, Response& response) {
            std::string text;
            while (vireo::FormPart* const part = request.parts().next()) {
                std::size_t size = 0;
                while (const auto piece = part->read()) {
                    size += piece->size();
                }
                text += part->name() + ":" + std::to_string(size) + " ";
            }
            response.text(text);
        });
        app_.post("/needs", [](Request& request, Response& response) { response.text(request.form()["a"]); });
    }

    FormOptions options() const {
        return FormOptions().directory(directory_.path().string()).maxFields(3).maxFieldBytes(100);
    }

    TestClient& start() {
        client_ = std::make_unique<TestClient>(app_);
        client_->setPatience(std::chrono::seconds(60));
        return *client_;
    }

    const vireotest::TestLog log_;
    const TestDirectory directory_;
    App app_;
    std::unique_ptr<TestClient> client_;
};

TEST_F(FormServing, FieldsAreDecoded) {
    TestClient& client = start();
    EXPECT_EQ(client.send(TestRequest("POST", "/form").field("a", "1 & 2=\xC3\xA4").field("a", "")).body(),
              "a=1 & 2=\xC3\xA4 all=2");
    EXPECT_EQ(client.post("/form", "b=1&a=x%2By+z", "application/x-www-form-urlencoded").body(), "a=x+y z all=1");
    EXPECT_EQ(client.post("/form", "", "application/x-www-form-urlencoded").body(), "a=none all=0");
}

TEST_F(FormServing, FilesLieOnTheDiskUntilTheyAreKept) {
    const std::string content = pattern(3000000);
    TestClient& client = start();
    EXPECT_EQ(client
                  .send(TestRequest("POST", "/form")
                            .field("a", "x")
                            .file("f", "name.txt", content, "text/plain")
                            .file("g", "", ""))
                  .body(),
              "a=x all=1 f/name.txt/text/plain/3000000");
    EXPECT_TRUE(contentOf(directory_.path() / "kept-f") == content);
    client_.reset();
    EXPECT_EQ(directory_.entries(), 1U);
}

TEST_F(FormServing, OneThatWasRefusedIsRefusedAgain) {
    app_.post("/twice", [](Request& request, Response& response) {
        std::string text;
        for (const std::size_t fields : {std::size_t{1}, std::size_t{100}}) {
            try {
                request.form(FormOptions().maxFields(fields));
                text += "taken ";
            } catch (const vireo::HttpError& error) {
                text += std::to_string(error.status()) + " ";
            }
        }
        response.text(text);
    });
    EXPECT_EQ(start().post("/twice", "a=1&b=2&c=3", "application/x-www-form-urlencoded").body(), "413 413 ");
}

TEST_F(FormServing, PartsComeOneAfterTheOther) {
    EXPECT_EQ(start()
                  .send(TestRequest("POST", "/parts").field("a", "123").file("f", "f", pattern(2000000)).field("z", ""))
                  .body(),
              "a:3 f:2000000 z:0 ");
}

TEST_F(FormServing, FormThatIsCutAnywhereIsTheWhole) {
    start();
    const std::string content = formOf("file");
    const std::string request = post("/form", content, "Content-Type: multipart/form-data; boundary=XX\r\n");
    const auto port = static_cast<std::uint16_t>(app_.port());
    for (std::size_t cut = request.size() - content.size(); cut < request.size(); ++cut) {
        RawClient client(port);
        client.send(std::string_view(request).substr(0, cut));
        client.send(std::string_view(request).substr(cut));
        ASSERT_EQ(client.readResponse().body, "a=value all=1 f/n/text/plain/4") << cut;
    }
}

TEST_F(FormServing, WhatIsWrongIsNamed) {
    TestClient& client = start();
    EXPECT_EQ(client.post("/form", "{}", "application/json").status(), 415);
    EXPECT_EQ(client.post("/needs", "b=1", "application/x-www-form-urlencoded").status(), 400);
    EXPECT_THAT(client.post("/needs", "b=1", "application/x-www-form-urlencoded").body(),
                HasSubstr("the form has no field \"a\""));
    EXPECT_EQ(client.post("/form", "--XX\r\n", "multipart/form-data; boundary=XX").status(), 400);
    EXPECT_EQ(client.post("/form", "a=1&b=2&c=3&d=4", "application/x-www-form-urlencoded").status(), 413);
    EXPECT_EQ(client.post("/form", "a=" + std::string(101, 'x'), "application/x-www-form-urlencoded").status(), 413);
    EXPECT_EQ(client.post("/needs", "a=1", "application/x-www-form-urlencoded").body(), "1");
}

TEST_F(FormServing, FormThatBreaksOffAnywhereLeavesNothing) {
    TestClient& client = start();
    const auto begin = [&client](const std::string& content, std::size_t bytes) {
        client.begin(TestRequest("POST", "/form").body(content, "multipart/form-data; boundary=XX"), bytes);
    };
    const std::string small = formOf("content");
    for (std::size_t bytes = 0; bytes < small.size(); ++bytes) {
        begin(small, bytes);
    }
    const std::string large = formOf(pattern(3000000));
    for (std::size_t point = 1; point <= 40; ++point) {
        begin(large, point * 70000);
    }
    client.abort();
    client_.reset();
    EXPECT_EQ(directory_.entries(), 0U);
}

} // namespace
