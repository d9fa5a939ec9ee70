#include "vireo/app/Json.h"
#include "support/TestLog.h"
#include "vireo/app.h"
#include "vireo/app/TestClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace {

struct Note {
    int id = 0;
    std::string text;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Note, id, text)

using vireo::Json;
using vireo::JsonText;

template <class Value>
std::string textOf(const Value& value) {
    return JsonText<Value>::of(value);
}

TEST(Json, WhatCanBeConvertedHasAText) {
    EXPECT_EQ(textOf(Json{{"id", 1}, {"text", "tea"}}), R"({"id":1,"text":"tea"})");
    EXPECT_EQ(textOf(std::vector<int>{1, 2}), "[1,2]");
    EXPECT_EQ(textOf(std::map<std::string, bool>{{"on", true}}), R"({"on":true})");
    EXPECT_EQ(textOf(1.5), "1.5");
    EXPECT_EQ(textOf(Json("a \"text\"")), R"("a \"text\"")");
}

TEST(Json, TextsAreNoValuesThatAreConvertedUnasked) {
    static_assert(!vireo::impl::HasJsonText<std::string>);
    static_assert(!vireo::impl::HasJsonText<char[3]>);
    static_assert(vireo::impl::HasJsonText<Json>);
    static_assert(vireo::impl::HasJsonText<int>);
}

TEST(Json, WhatIsNoUtf8IsReplaced) {
    EXPECT_EQ(textOf(Json("a\xFF")), "\"a\xEF\xBF\xBD\"");
}

TEST(Json, ListsBetweenBracesAreObjectsAndArrays) {
    vireo::App app;
    app.get("/object", [](vireo::Request&, vireo::Response& response) {
        response.json({{"id", 1}, {"tags", {"a", "b"}}, {"by", {{"name", "ada"}}}});
    });
    app.get("/one", [](vireo::Request&, vireo::Response& response) { response.json({{"id", 1}}); });
    app.get("/array", [](vireo::Request&, vireo::Response& response) { response.json({1, "two", nullptr}); });
    app.get("/empty", [](vireo::Request&, vireo::Response& response) { response.json({}); });
    vireo::TestClient client(app);
    EXPECT_EQ(client.get("/object").body(), R"({"by":{"name":"ada"},"id":1,"tags":["a","b"]})");
    EXPECT_EQ(client.get("/one").body(), R"({"id":1})");
    EXPECT_EQ(client.get("/one").header("Content-Type"), "application/json");
    EXPECT_EQ(client.get("/array").body(), R"([1,"two",null])");
    EXPECT_EQ(client.get("/empty").body(), "{}");
}

TEST(Json, TextsAreSentAsTheyAreOrAsStrings) {
    vireo::App app;
    app.get("/as-it-is", [](vireo::Request&, vireo::Response& response) { response.jsonText("{\"id\": 1}"); });
    app.get("/string", [](vireo::Request&, vireo::Response& response) {
        const std::string text = "{\"id\"";
        response.json(vireo::Json(text));
    });
    vireo::TestClient client(app);
    EXPECT_EQ(client.get("/as-it-is").body(), "{\"id\": 1}");
    EXPECT_EQ(client.get("/as-it-is").header("Content-Type"), "application/json");
    EXPECT_EQ(client.get("/string").body(), R"("{\"id\"")");
}

TEST(Json, TestsSendIt) {
    vireo::App app;
    app.post("/", [](vireo::Request& request, vireo::Response& response) { response.json(vireo::readJson(request)); });
    vireo::TestClient client(app);
    using vireo::TestRequest;
    EXPECT_EQ(client.send(TestRequest("POST").json({{"id", 1}})).body(), R"({"id":1})");
    EXPECT_EQ(client.send(TestRequest("POST").json(std::vector<int>{1, 2})).body(), "[1,2]");
}

std::string nested(int depth) {
    return std::string(static_cast<std::size_t>(depth), '[') + std::string(static_cast<std::size_t>(depth), ']');
}

TEST(Json, IsReadFromBodiesThatSayThatTheyAreIt) {
    vireo::App app;
    app.maxBody(1000);
    app.post("/", [](vireo::Request& request, vireo::Response& response) { response.json(vireo::readJson(request)); });
    vireo::TestClient client(app);
    const vireo::TestResponse answer = client.post("/", R"({ "id": 1, "list": [true] })");
    EXPECT_EQ(answer.status(), 200);
    EXPECT_EQ(answer.header("Content-Type"), "application/json");
    EXPECT_EQ(answer.body(), R"({"id":1,"list":[true]})");
    for (const char* const type : {"application/json; charset=utf-8", "APPLICATION/JSON", "application/problem+json"}) {
        EXPECT_EQ(client.post("/", "1", type).status(), 200) << type;
    }
    for (const char* const type : {"text/plain", "text/json", "application/jsonx", "application/+json", "x/y+json",
                                   "application/x, text/a+json", "application/a b+json", "application/a/b+json"}) {
        EXPECT_EQ(client.post("/", "1", type).status(), 415) << type;
    }
    const vireo::TestResponse broken = client.post("/", R"({"id": })");
    EXPECT_EQ(broken.status(), 400);
    EXPECT_EQ(broken.body(), "no JSON at byte 8\n");
    for (const char* const text : {"", "{", "1 2", "\"\xFF\"", "nan"}) {
        EXPECT_EQ(client.post("/", text).status(), 400) << text;
    }
    for (const char* const text : {"1e999", R"({"a":[-1e999]})"}) {
        const vireo::TestResponse outOfRange = client.post("/", text);
        EXPECT_EQ(outOfRange.status(), 400) << text;
        EXPECT_EQ(outOfRange.body(), "a number of the JSON is out of range\n");
    }
    EXPECT_EQ(client.post("/", nested(vireo::MaxJsonDepth)).status(), 200);
    EXPECT_EQ(client.post("/", nested(vireo::MaxJsonDepth + 1)).status(), 400);
    EXPECT_EQ(client.post("/", std::string(1001, ' ')).status(), 413);
}

/// An array of so many values, itself among them.
std::string arrayOf(std::size_t values) {
    std::string text = "[0";
    for (std::size_t i = 2; i < values; ++i) {
        text += ",0";
    }
    return text + "]";
}

TEST(Json, OfTooManyValuesIsRefused) {
    vireo::App app;
    app.post("/", [](vireo::Request& request, vireo::Response& response) {
        response.text(std::to_string(vireo::readJson(request).size()));
    });
    app.post("/five", [](vireo::Request& request, vireo::Response& response) {
        vireo::readJson(request, 5);
        response.empty();
    });
    app.post("/typed", [](vireo::Request& request, vireo::Response& response) {
        vireo::readJson<Json::array_t>(request, vireo::MaxJsonValues + 1);
        response.empty();
    });
    vireo::TestClient client(app);
    EXPECT_EQ(client.post("/", arrayOf(vireo::MaxJsonValues)).body(), std::to_string(vireo::MaxJsonValues - 1));
    const vireo::TestResponse refused = client.post("/", arrayOf(vireo::MaxJsonValues + 1));
    EXPECT_EQ(refused.status(), 413);
    EXPECT_EQ(refused.body(), "the JSON has too many values\n");
    EXPECT_EQ(client.post("/typed", arrayOf(vireo::MaxJsonValues + 1)).status(), 204);
    for (const char* const text : {"[1,[],{},\"x\"]", R"({"a":{"b":[null]},"c":true})", "[[[[[]]]]]"}) {
        EXPECT_EQ(client.post("/five", text).status(), 204) << text;
    }
    for (const char* const text :
         {"[1,[],{},\"x\",0]", R"({"a":{"b":[null]},"a":true,"a":false})", "[[[[[[]]]]]]", "[[],[],[],[],[]"}) {
        EXPECT_EQ(client.post("/five", text).status(), 413) << text;
    }
}

TEST(Json, ManyObjectsTakeNoLongerThanOthers) {
    vireo::App app;
    app.post("/", [](vireo::Request& request, vireo::Response& response) {
        response.text(std::to_string(vireo::readJson(request).size()));
    });
    vireo::TestClient client(app);
    // A parser that looks at all of them again for each one takes minutes, for which the client doesn't wait; a busy
    // machine with a sanitizer some of this.
    client.setPatience(std::chrono::seconds(60));
    std::string object = "{\"0\":{}";
    std::string array = "[{}";
    for (std::size_t i = 1; i < vireo::MaxJsonValues - 1; ++i) {
        object += ",\"" + std::to_string(i) + "\":{}";
        array += ",{}";
    }
    EXPECT_EQ(client.post("/", object + "}").body(), std::to_string(vireo::MaxJsonValues - 1));
    EXPECT_EQ(client.post("/", array + "]").body(), std::to_string(vireo::MaxJsonValues - 1));
}

TEST(Json, NamesThatComeTwiceHaveTheLastValue) {
    vireo::App app;
    app.post("/", [](vireo::Request& request, vireo::Response& response) { response.json(vireo::readJson(request)); });
    vireo::TestClient client(app);
    EXPECT_EQ(client.post("/", R"({"a":{"b":1},"c":[{}],"a":{"d":[-1,1.5,null,"e"]}})").body(),
              R"({"a":{"d":[-1,1.5,null,"e"]},"c":[{}]})");
    EXPECT_EQ(client.post("/", "18446744073709551615").body(), "18446744073709551615");
}

TEST(Json, OfAnotherFormThanATypesIsTheClientsMistake) {
    const vireotest::TestLog log;
    vireo::App app;
    app.post("/note", [](vireo::Request& request, vireo::Response& response) {
        const auto note = vireo::readJson<Note>(request);
        response.json(note);
    });
    app.post("/object", [](vireo::Request& request, vireo::Response& response) {
        response.text(std::to_string(vireo::readJson<Json::object_t>(request).size()));
    });
    vireo::TestClient client(app);
    EXPECT_EQ(client.post("/note", R"({"id": 7, "text": "tea", "more": []})").body(), R"({"id":7,"text":"tea"})");
    EXPECT_EQ(client.post("/object", R"({"a": 1, "b": 2})").body(), "2");
    for (const char* const text : {"[1,2]", "{}", R"({"id": 7})", R"({"id": "7", "text": "tea"})", "null", "\"x\""}) {
        const vireo::TestResponse answer = client.post("/note", text);
        EXPECT_EQ(answer.status(), 400) << text;
        EXPECT_TRUE(answer.body().starts_with("the JSON is not of the right form: ")) << answer.body();
    }
    EXPECT_NE(client.post("/note", R"({"id": 7})").body().find("key 'text' not found"), std::string::npos);
    EXPECT_EQ(client.post("/object", "[1,2]").status(), 400);
    EXPECT_TRUE(client.post("/object", "{").body().starts_with("no JSON at byte "));
    EXPECT_EQ(client.post("/object", "{}", "text/plain").status(), 415);
    EXPECT_TRUE(log.texts(qlLogType::Failure).empty());
}

} // namespace
