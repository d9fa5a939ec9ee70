#include "vireo/FormDecoder.h"
#include "integration/ServerTest.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

// Forms as the engine decodes them, whichever way the server waits.

namespace vireotest {
namespace {

using ql::http::FormDecoder;
using Pieces = std::vector<std::string>;

/// Writes parts as "[name|file name|type]bytes", a file with "file" in front of its name.
class FormText : public ql::http::FormReceiver {
public:
    void onPart(std::string_view name, std::string_view fileName, std::string_view contentType, bool isFile) override {
        text.append("[").append(name).append(isFile ? "|file " : "|").append(fileName);
        text.append("|").append(contentType).append("]");
    }
    void onBytes(std::string_view bytes) override {
        EXPECT_FALSE(bytes.empty());
        text.append(bytes);
    }

    std::string text;
};

constexpr const char* UrlEncoded = "application/x-www-form-urlencoded";
constexpr const char* Multipart = "multipart/form-data; boundary=\"b-9\"";

class FormDecoding : public ServerTest {
protected:
    FormDecoding() {
        Behaviour behaviour;
        behaviour.inlineHandler = [this](TestRequest& request) {
            onRequest_(request);
            request.reply();
        };
        server_ = std::make_unique<TestServer>(std::move(behaviour));
        client_ = std::make_unique<RawClient>(server_->connect());
    }

    /// Runs on the daemon thread, for a request with this type.
    void handle(const std::string& contentType, std::function<void(TestRequest&)> onRequest) {
        onRequest_ = std::move(onRequest);
        EXPECT_EQ(client_->exchange(get("/", "Content-Type: " + contentType + "\r\n")).status, 200);
    }

    std::string decoded(const char* contentType, const Pieces& pieces) {
        std::string result;
        handle(contentType, [&](TestRequest& request) {
            const std::unique_ptr<FormDecoder> decoder = FormDecoder::Create(request);
            ASSERT_NE(decoder, nullptr);
            FormText form;
            for (const std::string& piece : pieces) {
                if (!decoder->decode(piece, form)) {
                    EXPECT_FALSE(decoder->decode("", form)) << "it goes on";
                    EXPECT_FALSE(decoder->finish(form)) << "it goes on";
                    result = "malformed";
                    return;
                }
            }
            result = decoder->finish(form) ? form.text : "cut short";
            EXPECT_FALSE(decoder->finish(form)) << "it goes on";
        });
        return result;
    }

    /// The same for the body whole, byte by byte, and cut at each position.
    void expectDecoded(const char* contentType, const std::string& body, const std::string& expected) {
        EXPECT_EQ(decoded(contentType, {body}), expected) << body;
        Pieces bytes;
        for (const char c : body) {
            bytes.emplace_back(1, c);
        }
        EXPECT_EQ(decoded(contentType, bytes), expected) << body;
        for (std::size_t cut = 1; cut < body.size(); ++cut) {
            EXPECT_EQ(decoded(contentType, {body.substr(0, cut), body.substr(cut)}), expected) << body << cut;
        }
    }

    TestImpl& application() { return server_->application(); }

private:
    std::function<void(TestRequest&)> onRequest_;
    std::unique_ptr<TestServer> server_;
    std::unique_ptr<RawClient> client_;
};

TEST_F(FormDecoding, PairsAreDecoded) {
    expectDecoded(UrlEncoded, "a=1&b=%41+%2b%26&c&d=&&e=x=y", "[a||]1[b||]A +&[c||][d||][e||]x=y");
    expectDecoded(UrlEncoded, "", "");
    expectDecoded(UrlEncoded, "a", "[a||]");
    expectDecoded(UrlEncoded, "%C3%A4+b=%c3%9f", "[\xC3\xA4 b||]\xC3\x9F");
}

TEST_F(FormDecoding, PairsOfOneNameAreParts) {
    expectDecoded(UrlEncoded, "a=&a=1&a&a=%32&a=", "[a||][a||]1[a||][a||]2[a||]");
}

TEST_F(FormDecoding, BytesThatOthersStumbleOverAreDecoded) {
    expectDecoded(UrlEncoded, "a=1\r\n2&b=%&c=%4&d=%zz&e=5%", "[a||]1\r\n2[b||]%[c||]%4[d||]%zz[e||]5%");
    expectDecoded(UrlEncoded, std::string("a=1\0002&b=%00", 11), std::string("[a||]1\0002[b||]\0", 14));
}

TEST_F(FormDecoding, PairWithoutANameOrWithANulInItIsMalformed) {
    for (const char* const body : {"=1", "a=1&=2", "a%00=1"}) {
        for (const Pieces& pieces : {Pieces{body}, Pieces{std::string(body).substr(0, 1), body + 1}}) {
            EXPECT_EQ(decoded(UrlEncoded, pieces), "malformed") << body;
        }
    }
}

TEST_F(FormDecoding, LongValuesAreDecodedAndLongNamesAreMalformed) {
    std::string body = "a=";
    std::string value;
    for (int i = 0; i < 20000; ++i) {
        body += "%41b";
        value += "Ab";
    }
    EXPECT_EQ(decoded(UrlEncoded, {body}), "[a||]" + value);
    EXPECT_EQ(decoded(UrlEncoded, {std::string(8000, 'a') + "=1"}), "[" + std::string(8000, 'a') + "||]1");
    EXPECT_EQ(decoded(UrlEncoded, {std::string(8300, 'a') + "=1"}), "malformed");
}

std::string part(const std::string& headers, const std::string& bytes) {
    return "--b-9\r\n" + headers + "\r\n\r\n" + bytes + "\r\n";
}

std::string field(const std::string& name, const std::string& value) {
    return part("Content-Disposition: form-data; name=\"" + name + "\"", value);
}

TEST_F(FormDecoding, PartsAreDecoded) {
    expectDecoded(Multipart,
                  field("a", "1") + field("b", "") +
                      part("Content-Disposition: form-data; name=\"f\"; filename=\"x.txt\"\r\nContent-Type: text/plain",
                           "\r\n--b-\r\n") +
                      "--b-9--\r\n",
                  "[a||]1[b||][f|file x.txt|text/plain]\r\n--b-\r\n");
}

TEST_F(FormDecoding, PartsOfOneNameAreParts) {
    expectDecoded(Multipart, field("a", "") + field("a", "1") + field("a", "") + field("a", "") + "--b-9--",
                  "[a||][a||]1[a||][a||]");
}

TEST_F(FormDecoding, EmptyMultipartFormIsWhole) {
    expectDecoded(Multipart, "--b-9--\r\n", "");
}

TEST_F(FormDecoding, MultipartNamesAreDecodedAndDirectoriesCut) {
    EXPECT_EQ(
        decoded(Multipart, {part("Content-Disposition: form-data; name=\"a%22\"; filename=\"C:\\d\\%0D.txt\"", "") +
                            "--b-9--\r\n"}),
        "[a\"|file \r.txt|]");
    EXPECT_EQ(decoded(Multipart, {part("Content-Disposition: form-data; name=\"a\"; filename=\"\"", "") + "--b-9--"}),
              "[a|file |]");
}

TEST_F(FormDecoding, MultipartBodyThatIsCutAnywhereIsNotWhole) {
    const std::string body = field("a", "1") + field("b", "2") + "--b-9--";
    for (std::size_t size = 0; size < body.size(); ++size) {
        EXPECT_THAT(decoded(Multipart, {body.substr(0, size)}), testing::AnyOf("cut short", "malformed")) << size;
    }
}

TEST_F(FormDecoding, WhatIsNoMultipartFormIsMalformed) {
    for (const std::string& body :
         {std::string("--b-9x\r\n"), part("Content-Disposition: form-data", "x"), part("X: y", "x"),
          part("Content-Disposition: form-data; name=a", "x"), field("a", "1") + "--b-9--\r\nmore",
          part("X: " + std::string(9000, 'x'), "x"),
          part("Content-Disposition: form-data; name=\"f\"\r\nContent-Type: multipart/mixed; boundary=c",
               "--c\r\nContent-Disposition: file; filename=\"1\"\r\n\r\n1\r\n--c\r\n"
               "Content-Disposition: file; filename=\"2\"\r\n\r\n2\r\n--c--") +
              "--b-9--\r\n"}) {
        EXPECT_EQ(decoded(Multipart, {body + "--b-9--\r\n"}), "malformed") << body.substr(0, 100);
    }
    EXPECT_EQ(decoded(Multipart, {"no form at all"}), "cut short");
}

TEST_F(FormDecoding, FilesOfAnyBytesAreDecoded) {
    std::string bytes;
    for (std::size_t i = 0; i < 300000; ++i) {
        bytes += static_cast<char>((i * 31 + i / 251) & 0xFFU);
    }
    EXPECT_EQ(decoded(Multipart, {field("f", bytes) + "--b-9--\r\n"}), "[f||]" + bytes);
}

TEST_F(FormDecoding, IsThereForFormsOnceAndOnTheThreadOfTheRequest) {
    for (const char* const type : {"text/plain", "multipart/form-data", "multipart/form-data; boundary=a; b=c"}) {
        handle(type, [](TestRequest& request) { EXPECT_EQ(FormDecoder::Create(request), nullptr); });
    }
    handle(UrlEncoded, [](TestRequest& request) {
        std::thread([&] { EXPECT_EQ(FormDecoder::Create(request), nullptr); }).join();
        const std::unique_ptr<FormDecoder> decoder = FormDecoder::Create(request);
        EXPECT_NE(decoder, nullptr);
        EXPECT_EQ(FormDecoder::Create(request), nullptr);
    });
}

TEST_F(FormDecoding, EndsWithTheRequestAndMayOutliveIt) {
    std::unique_ptr<FormDecoder> decoder;
    FormText form;
    handle(UrlEncoded, [&](TestRequest& request) {
        decoder = FormDecoder::Create(request);
        EXPECT_TRUE(decoder->decode("a=1&b=2", form));
    });
    application().finished();
    EXPECT_FALSE(decoder->decode("3", form));
    EXPECT_FALSE(decoder->finish(form));
    EXPECT_EQ(form.text, "[a||]1[b||]2") << "what the engine decodes at its end is for nobody";
}

} // namespace
} // namespace vireotest
