#include "app/files/FileAnswer.h"

#include "app/files/AskedFiles.h"
#include "app/files/Representation.h"
#include "support/Pattern.h"
#include "support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;
using vireo::FileOptions;
using vireotest::FileAsker;
using vireotest::FileResult;
using vireotest::HeaderLines;
using vireotest::pattern;
using vireotest::ServedDirectory;
using vireotest::TestDirectory;
using vireotest::waitUntil;

class FileAnswerTest : public testing::Test {
protected:
    /// Writes a file that has settled: its tag is strong.
    fs::path write(const std::string& name, std::string_view content) const {
        const fs::path path = directory_.write(name, content);
        age(path, std::chrono::hours(1));
        return path;
    }
    static void age(const fs::path& path, std::chrono::seconds age) {
        fs::last_write_time(path, fs::file_time_type::clock::now() - age);
    }
    ServedDirectory serve(const FileOptions& options = {}) const { return ServedDirectory(directory_.path(), options); }
    FileResult get(std::string_view target, const HeaderLines& lines = {}) const { return serve().get(target, lines); }

    const TestDirectory directory_;
};

// ---- What is found ----

TEST_F(FileAnswerTest, FileHasItsTypeAndItsValidators) {
    write("page.html", "<p>");
    const FileResult result = get("/s/page.html");
    EXPECT_EQ(result.status, 200);
    EXPECT_EQ(result.body, "<p>");
    EXPECT_EQ(result.header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(result.header("Cache-Control"), "no-cache");
    EXPECT_EQ(result.header("Accept-Ranges"), "bytes");
    EXPECT_THAT(result.header("ETag"), MatchesRegex("\"3-\\w+-\\w+\""));
    EXPECT_THAT(result.header("Last-Modified"), MatchesRegex("..., .. ... .... ..:..:.. GMT"));
    EXPECT_EQ(result.header("Vary"), "");
}

TEST_F(FileAnswerTest, SmallFilesAreBufferedAndLargeOnesAreSentByTheSystem) {
    const std::string small = pattern(65536);
    const std::string large = pattern(65537);
    write("small", small);
    write("large", large);
    EXPECT_FALSE(get("/s/small").isFile);
    EXPECT_TRUE(get("/s/small").body == small);
    EXPECT_TRUE(get("/s/large").isFile);
    EXPECT_TRUE(get("/s/large").body == large);
}

TEST_F(FileAnswerTest, NamesAreDecodedSegmentBySegment) {
    write("a b/\xC3\xA4.txt", "deep");
    EXPECT_EQ(get("/s/a%20b/%C3%A4.txt").body, "deep");
    EXPECT_EQ(get("/s/a%20b%2F%C3%A4.txt").status, 404);
}

TEST_F(FileAnswerTest, NamesHaveOneSpelling) {
    write("Folder/File.txt", "found");
    write("Folder/index.html", "index");
    EXPECT_EQ(get("/s/Folder/File.txt").body, "found");
    EXPECT_EQ(get("/s/%46older/%46ile.txt").body, "found");
    for (const std::string_view target : {"/s/folder/File.txt", "/s/Folder/file.txt", "/s/Folder/FILE.TXT",
                                          "/s/%66older/File.txt", "/s/FOLDER/", "/s/FOLDER", "/s/Folder/Index.html"}) {
        EXPECT_EQ(get(target).status, 404) << target;
    }
}

TEST_F(FileAnswerTest, WhatIsNotThereIsNotFound) {
    write("file", "x");
    for (const std::string_view target : {"/s/none", "/s/file/", "/s/file/x", "/s/", "/s//file", "/s/none/"}) {
        EXPECT_EQ(get(target).status, 404) << target;
    }
}

TEST_F(FileAnswerTest, DirectoryIsItsIndex) {
    write("index.html", "root");
    write("sub/index.html", "sub");
    EXPECT_EQ(get("/s/").body, "root");
    EXPECT_EQ(get("/s/sub/").body, "sub");
    EXPECT_EQ(serve(FileOptions().index("")).get("/s/sub/").status, 404);
    write("sub/start.htm", "start");
    EXPECT_EQ(serve(FileOptions().index("start.htm")).get("/s/sub/").body, "start");
}

TEST_F(FileAnswerTest, DirectoryWithoutItsSlashIsElsewhere) {
    write("a b/sub/index.html", "");
    const FileResult result = get("/s/a%20b/sub?q=1&r");
    EXPECT_EQ(result.status, 301);
    EXPECT_EQ(result.header("Location"), "/s/a%20b/sub/?q=1&r");
    EXPECT_EQ(get("/s/a%20b").status, 404);
    EXPECT_EQ(get("/s").status, 404);
    EXPECT_EQ(serve(FileOptions().listing()).get("/s").header("Location"), "/s/");
}

TEST_F(FileAnswerTest, RedirectionStaysOnThisHost) {
    write("d/index.html", "");
    const auto handle = [this](std::string_view target) {
        std::function<void()> reload;
        const vireo::Handler handler = vireo::impl::serveFiles(directory_.path().string(), {}, reload);
        return FileAsker::ask("GET", target, {}, {"/", "/{path:path}"},
                              [&](vireo::impl::RequestData& request, vireo::impl::ResponseState& state) {
                                  vireo::Response response = vireo::impl::ResponseAccess::Of(state);
                                  handler(request.request, response);
                              });
    };
    EXPECT_EQ(handle("/d").header("Location"), "/d/");
    EXPECT_EQ(handle("//d").status, 404);
    EXPECT_EQ(handle("//d/").status, 404);
}

TEST_F(FileAnswerTest, FallbackStandsForWhatIsMissing) {
    write("app/index.html", "application");
    write("real", "real");
    const ServedDirectory served = serve(FileOptions().fallback("app/index.html"));
    EXPECT_EQ(served.get("/s/users/7").body, "application");
    EXPECT_EQ(served.get("/s/users/7").status, 200);
    EXPECT_EQ(served.get("/s/users/7").header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(served.get("/s/real").body, "real");
    EXPECT_EQ(served.get("/s/.hidden").status, 404);
    EXPECT_EQ(served.get("/s/").body, "application");
}

TEST_F(FileAnswerTest, IndexIsANameInTheDirectory) {
    write("outside", "outside");
    write("d/start.txt", "start");
    EXPECT_EQ(serve(FileOptions().index("start.txt")).get("/s/d/").body, "start");
    EXPECT_EQ(serve(FileOptions().index("")).get("/s/d/").status, 404);
    for (const char* name : {"../outside", "/outside", "d/start.txt", "..", ".", "d\\start.txt"}) {
        EXPECT_THROW(FileOptions().index(name), std::invalid_argument) << name;
    }
}

TEST_F(FileAnswerTest, FallbackMayBeginWithASlashAndStaysInTheDirectory) {
    write("app/index.html", "application");
    for (const char* path : {"/app/index.html", "app//index.html", "//app/index.html"}) {
        EXPECT_EQ(serve(FileOptions().fallback(path)).get("/s/users/7").body, "application") << path;
    }
    for (const char* path : {"../index.html", "app/../index.html", "./index.html", "app/..", ".", "app\\index.html"}) {
        EXPECT_THROW(FileOptions().fallback(path), std::invalid_argument) << path;
    }
    EXPECT_EQ(serve(FileOptions().fallback("/")).get("/s/users/7").status, 404);
}

TEST_F(FileAnswerTest, OptionsTakeWhatCanBeAHeaderAndAnExtension) {
    for (const char* text : {"a\nb", "a\rb", "\x7F"}) {
        EXPECT_THROW(FileOptions().cacheControl(text), std::invalid_argument) << text;
        EXPECT_THROW(FileOptions().type("html", text), std::invalid_argument) << text;
    }
    for (const char* extension : {".html", "tar.gz", "a/b", "a\\b"}) {
        EXPECT_THROW(FileOptions().type(extension, "text/x-mine"), std::invalid_argument) << extension;
    }
    write("page.html", "");
    write("README", "");
    const ServedDirectory served = serve(FileOptions().type("HTML", "text/x-mine").type("", "text/x-none"));
    EXPECT_EQ(served.get("/s/page.html").header("Content-Type"), "text/x-mine");
    EXPECT_EQ(served.get("/s/README").header("Content-Type"), "text/x-none");
}

TEST_F(FileAnswerTest, TypesAndCacheControlAreTheOptions) {
    write("a.XYZ", "");
    const ServedDirectory served = serve(FileOptions().type("xyz", "text/x-y-z").cacheControl("max-age=60"));
    EXPECT_EQ(served.get("/s/a.XYZ").header("Content-Type"), "text/x-y-z");
    EXPECT_EQ(served.get("/s/a.XYZ").header("Cache-Control"), "max-age=60");
    EXPECT_EQ(serve(FileOptions().cacheControl("")).get("/s/a.XYZ").header("Cache-Control"), "");
}

TEST_F(FileAnswerTest, DotFilesAreServedOnlyWhereTheyAreWanted) {
    write(".secret", "x");
    write(".d/file", "y");
    EXPECT_EQ(get("/s/.secret").status, 404);
    EXPECT_EQ(get("/s/.d/file").status, 404);
    const ServedDirectory served = serve(FileOptions().dotFiles());
    EXPECT_EQ(served.get("/s/.secret").body, "x");
    EXPECT_EQ(served.get("/s/.d/file").body, "y");
    EXPECT_EQ(served.get("/s/../x").status, 400);
}

TEST_F(FileAnswerTest, ListingShowsWhatIsServed) {
    write("d/file.txt", "12345");
    write("d/.hidden", "");
    write("d/sub/x", "");
    EXPECT_EQ(get("/s/d/").status, 404);
    const FileResult result = serve(FileOptions().listing()).get("/s/d/");
    EXPECT_EQ(result.status, 200);
    EXPECT_EQ(result.header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_THAT(result.body, HasSubstr("href=\"./file.txt\">file.txt</a></td><td>5<"));
    EXPECT_THAT(result.body, HasSubstr("href=\"./sub/\">sub/</a>"));
    EXPECT_THAT(result.body, Not(HasSubstr("hidden")));
    EXPECT_THAT(result.body, HasSubstr("href=\"../\""));
    EXPECT_EQ(result.header("Cache-Control"), "no-cache");
    for (const char* control : {"no-store", ""}) {
        EXPECT_EQ(serve(FileOptions().listing().cacheControl(control)).get("/s/d/").header("Cache-Control"), control);
    }
    write("d/index.html", "index");
    EXPECT_EQ(serve(FileOptions().listing()).get("/s/d/").body, "index");
}

TEST_F(FileAnswerTest, MissingDirectoryIsASystemError) {
    EXPECT_THROW(ServedDirectory(directory_.path() / "none"), std::system_error);
    write("file", "");
    EXPECT_THROW(ServedDirectory(directory_.path() / "file"), std::system_error);
}

// ---- Validators ----

TEST_F(FileAnswerTest, TagChangesWithEverythingThatMayHaveChanged) {
    write("file", "one");
    const std::string first = get("/s/file").header("ETag");
    EXPECT_EQ(get("/s/file").header("ETag"), first);
    const auto time = fs::last_write_time(directory_.path() / "file");
    // Another content of the same length and date: the system knows.
    directory_.write("other", "two");
    fs::last_write_time(directory_.path() / "other", time);
    fs::rename(directory_.path() / "other", directory_.path() / "file");
    EXPECT_EQ(get("/s/file").body, "two");
    // The system's clock of changes is a coarse one.
    EXPECT_TRUE(waitUntil([&] {
        fs::last_write_time(directory_.path() / "file", time);
        return get("/s/file").header("ETag") != first;
    }));
}

TEST_F(FileAnswerTest, TagOfAFileThatMayStillBeWrittenIsWeak) {
    directory_.write("file", "x");
    EXPECT_THAT(get("/s/file").header("ETag"), StartsWith("W/\""));
    age(directory_.path() / "file", -std::chrono::hours(1));
    EXPECT_THAT(get("/s/file").header("ETag"), StartsWith("W/\""));
    age(directory_.path() / "file", std::chrono::seconds(3));
    EXPECT_THAT(get("/s/file").header("ETag"), StartsWith("\""));
}

TEST_F(FileAnswerTest, TimeBeyondWhatCanBeCountedIsOneThatLiesAhead) {
    constexpr std::int64_t In2305 = 10600000000;
    vireotest::setModified(write("file", "x"), In2305);
    const FileResult result = get("/s/file");
    EXPECT_EQ(result.status, 200);
    EXPECT_THAT(result.header("ETag"), StartsWith("W/\""));
    EXPECT_NE(result.header("Last-Modified"), "Thu, 01 Jan 1970 00:00:00 GMT");
}

TEST_F(FileAnswerTest, ClientThatHasItIsToldSo) {
    write("file.txt", "content");
    const std::string tag = get("/s/file.txt").header("ETag");
    const FileResult result = get("/s/file.txt", {{"If-None-Match", tag}});
    EXPECT_EQ(result.status, 304);
    EXPECT_TRUE(result.isFile) << "which tells the length";
    EXPECT_EQ(result.header("ETag"), tag);
    EXPECT_EQ(result.header("Cache-Control"), "no-cache");
    EXPECT_EQ(get("/s/file.txt", {{"If-Modified-Since", result.header("Last-Modified")}}).status, 304);
    EXPECT_EQ(get("/s/file.txt", {{"If-None-Match", "\"x\""}}).status, 200);
    EXPECT_EQ(get("/s/file.txt", {{"If-Match", "\"x\""}}).status, 412);
    EXPECT_EQ(get("/s/file.txt", {{"If-None-Match", "\"x\""}, {"If-None-Match", tag}}).status, 304);
}

TEST_F(FileAnswerTest, HeadIsConditionalAsGetIs) {
    write("file.txt", "content");
    const std::string tag = get("/s/file.txt").header("ETag");
    const ServedDirectory served = serve();
    EXPECT_EQ(served.get("/s/file.txt", {{"If-None-Match", tag}}, "HEAD").status, 304);
    EXPECT_EQ(served.get("/s/file.txt", {{"If-Modified-Since", "Fri, 31 Dec 2100 00:00:00 GMT"}}, "HEAD").status, 304);
    EXPECT_EQ(served.get("/s/file.txt", {{"If-Match", "\"x\""}}, "HEAD").status, 412);
    EXPECT_EQ(served.get("/s/file.txt", {{"If-Unmodified-Since", "Thu, 01 Jan 1970 00:00:00 GMT"}}, "HEAD").status,
              412);
}

TEST_F(FileAnswerTest, ConditionsDoNotChangeWhatIsNoFile) {
    write("sub/index.html", "");
    for (const HeaderLines& lines : std::vector<HeaderLines>{{{"If-Match", "*"}},
                                                             {{"If-Match", "\"x\""}},
                                                             {{"If-None-Match", "*"}},
                                                             {{"If-Modified-Since", "Fri, 31 Dec 2100 00:00:00 GMT"}},
                                                             {{"If-Unmodified-Since", "Thu, 01 Jan 1970 00:00:00 GMT"}},
                                                             {{"Range", "bytes=5-"}}}) {
        EXPECT_EQ(get("/s/none", lines).status, 404) << lines[0].name;
        EXPECT_EQ(get("/s/sub", lines).status, 301) << lines[0].name;
    }
}

TEST_F(FileAnswerTest, SeveralDatesAreNone) {
    write("file", "x");
    for (const std::string_view name : {"If-Modified-Since", "If-Unmodified-Since"}) {
        for (const std::string_view date : {"Fri, 31 Dec 2100 00:00:00 GMT", "Thu, 01 Jan 1970 00:00:00 GMT"}) {
            EXPECT_EQ(get("/s/file", {{name, date}, {name, date}}).status, 200) << name << ": " << date;
        }
    }
}

TEST_F(FileAnswerTest, ListsMayStandInSeveralLines) {
    write("file", "x");
    const std::string tag = get("/s/file").header("ETag");
    EXPECT_EQ(get("/s/file", {{"If-Match", "\"x\""}, {"If-Match", tag}}).status, 200);
    EXPECT_EQ(get("/s/file", {{"If-Match", "\"x\""}, {"If-Match", "\"y\""}}).status, 412);
}

// ---- Ranges ----

TEST_F(FileAnswerTest, OneRangeIsAPartOfTheFile) {
    const std::string content = pattern(300000);
    write("file", content);
    const FileResult result = get("/s/file", {{"Range", "bytes=1000-201000"}});
    EXPECT_EQ(result.status, 206);
    EXPECT_EQ(result.header("Content-Range"), "bytes 1000-201000/300000");
    EXPECT_TRUE(result.isFile);
    EXPECT_TRUE(result.body == content.substr(1000, 200001));
    EXPECT_FALSE(get("/s/file", {{"Range", "bytes=1000-1001"}}).isFile);
    EXPECT_EQ(get("/s/file", {{"Range", "bytes=1000-1001"}}).body, content.substr(1000, 2));
}

TEST_F(FileAnswerTest, UnsatisfiableRangeNamesTheSize) {
    write("file", "12345");
    const FileResult result = get("/s/file", {{"Range", "bytes=5-"}});
    EXPECT_EQ(result.status, 416);
    EXPECT_EQ(result.header("Content-Range"), "bytes */5");
}

TEST_F(FileAnswerTest, PartSaysWhatTheWholeWouldSay) {
    write("file.txt", "12345");
    const FileResult whole = get("/s/file.txt");
    EXPECT_EQ(whole.header("Content-Range"), "");
    for (const char* const ranges : {"bytes=0-0", "bytes=0-0,2-2"}) {
        const FileResult part = get("/s/file.txt", {{"Range", ranges}});
        EXPECT_EQ(part.status, 206);
        for (const char* const name : {"ETag", "Last-Modified", "Cache-Control", "Accept-Ranges"}) {
            EXPECT_NE(part.header(name), "") << name;
            EXPECT_EQ(part.header(name), whole.header(name)) << name;
        }
    }
}

TEST_F(FileAnswerTest, RangesThatBecomeOneAreNoParts) {
    write("file.txt", "0123456789");
    for (const char* const ranges : {"bytes=2-3,4-5", "bytes=4-5,2-4", "bytes=2-5,77-", "bytes=2-5,"}) {
        const FileResult result = get("/s/file.txt", {{"Range", ranges}});
        EXPECT_EQ(result.status, 206);
        EXPECT_EQ(result.header("Content-Range"), "bytes 2-5/10");
        EXPECT_EQ(result.header("Content-Type"), "text/plain; charset=utf-8");
        EXPECT_EQ(result.body, "2345");
    }
}

TEST_F(FileAnswerTest, ConditionsGoBeforeRanges) {
    write("file", "12345");
    const std::string tag = get("/s/file").header("ETag");
    for (const char* const ranges : {"bytes=0-0", "bytes=9-"}) {
        EXPECT_EQ(get("/s/file", {{"Range", ranges}, {"If-Match", "\"x\""}}).status, 412);
        EXPECT_EQ(get("/s/file", {{"Range", ranges}, {"If-None-Match", tag}}).status, 304);
    }
    EXPECT_EQ(get("/s/file", {{"Range", "bytes=0-0"}, {"If-Match", tag}}).status, 206);
    EXPECT_EQ(get("/s/file", {{"Range", "bytes=9-"}, {"If-Match", tag}}).status, 416);
}

TEST_F(FileAnswerTest, IfRangeWithoutARangeSaysNothing) {
    write("file", "12345");
    EXPECT_EQ(get("/s/file", {{"If-Range", get("/s/file").header("ETag")}}).status, 200);
    EXPECT_EQ(get("/s/file", {{"If-Range", "\"x\""}}).status, 200);
    EXPECT_EQ(get("/s/file", {{"If-Range", "\"x\""}, {"Range", "bytes=9-"}}).status, 200);
}

TEST_F(FileAnswerTest, EmptyFileIsSentWhole) {
    write("file", "");
    for (const char* const ranges : {"bytes=0-", "bytes=0-0", "bytes=-1"}) {
        const FileResult result = get("/s/file", {{"Range", ranges}});
        EXPECT_EQ(result.status, 200) << ranges;
        EXPECT_EQ(result.header("Content-Range"), "");
    }
}

TEST_F(FileAnswerTest, RangesCountForGetAlone) {
    write("file", "12345");
    EXPECT_EQ(serve().get("/s/file", {{"Range", "bytes=0-0"}}, "HEAD").status, 200);
    EXPECT_EQ(serve().get("/s/file", {{"Range", "bytes=9-"}}, "HEAD").status, 200);
}

TEST_F(FileAnswerTest, RangeOfAnotherVersionIsTheWholeFile) {
    write("file", "12345");
    const FileResult whole = get("/s/file");
    const auto ranged = [this](const std::string& ifRange) {
        return get("/s/file", {{"Range", "bytes=0-0"}, {"If-Range", ifRange}}).status;
    };
    EXPECT_EQ(ranged(whole.header("ETag")), 206);
    EXPECT_EQ(ranged(whole.header("Last-Modified")), 206);
    EXPECT_EQ(ranged("\"x\""), 200);
    EXPECT_EQ(ranged("W/" + whole.header("ETag")), 200);
    EXPECT_EQ(ranged("Thu, 01 Jan 1970 00:00:00 GMT"), 200);
    EXPECT_EQ(get("/s/file", {{"Range", "bytes=0-0"}, {"If-None-Match", whole.header("ETag")}}).status, 304);
}

TEST_F(FileAnswerTest, SeveralRangesAreOneBodyOfParts) {
    write("file.txt", "0123456789");
    const FileResult result = get("/s/file.txt", {{"Range", "bytes=0-1,8-"}});
    EXPECT_EQ(result.status, 206);
    const std::string type = result.header("Content-Type");
    ASSERT_THAT(type, StartsWith("multipart/byteranges; boundary="));
    const std::string mark = type.substr(type.find('=') + 1);
    EXPECT_EQ(result.body, "\r\n--" + mark +
                               "\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Range: bytes 0-1/10" +
                               "\r\n\r\n01\r\n--" + mark +
                               "\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Range: bytes 8-9/10\r\n\r\n89" +
                               "\r\n--" + mark + "--\r\n");
    EXPECT_EQ(result.header("Content-Range"), "");
}

TEST_F(FileAnswerTest, RangesThatAreTooMuchAreTheWholeFile) {
    write("file", pattern(2000000));
    EXPECT_EQ(get("/s/file", {{"Range", "bytes=0-524287,600000-1124287"}}).status, 206);
    EXPECT_EQ(get("/s/file", {{"Range", "bytes=0-524287,600000-1124288"}}).status, 200);
    std::string sixteen = "bytes=0-0";
    for (int i = 1; i < 16; ++i) {
        sixteen += "," + std::to_string(i * 10) + "-" + std::to_string(i * 10);
    }
    EXPECT_EQ(get("/s/file", {{"Range", sixteen}}).status, 206);
    EXPECT_EQ(get("/s/file", {{"Range", sixteen + ",1000-1000"}}).status, 200);
    EXPECT_EQ(get("/s/file", {{"Range", "bytes=0-1999999"}}).status, 206);
}

// ---- Compressed siblings ----

class SiblingTest : public FileAnswerTest {
protected:
    SiblingTest() {
        write("page.html", "plain");
        write("page.html.gz", "gzipped");
        write("page.html.br", "brotli");
        age(directory_.path() / "page.html", std::chrono::hours(2));
    }
    FileResult ask(std::string_view encodings, HeaderLines lines = {}) const {
        lines.push_back({"Accept-Encoding", encodings});
        return get("/s/page.html", lines);
    }
};

TEST_F(SiblingTest, ClientGetsWhatItLikesBest) {
    EXPECT_EQ(ask("gzip, br").body, "brotli");
    EXPECT_EQ(ask("gzip, br").header("Content-Encoding"), "br");
    EXPECT_EQ(ask("gzip").body, "gzipped");
    EXPECT_EQ(ask("gzip").header("Content-Encoding"), "gzip");
    EXPECT_EQ(ask("gzip, br;q=0").body, "gzipped");
    EXPECT_EQ(ask("deflate").body, "plain");
    EXPECT_EQ(ask("deflate").header("Content-Encoding"), "");
    EXPECT_EQ(get("/s/page.html").body, "plain");
}

TEST_F(SiblingTest, TypeIsThatOfTheFileAndTagsDiffer) {
    EXPECT_EQ(ask("br").header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_THAT(ask("br").header("ETag"), HasSubstr("-br\""));
    EXPECT_NE(ask("gzip").header("ETag"), ask("br").header("ETag"));
    EXPECT_EQ(ask("br", {{"If-None-Match", ask("br").header("ETag")}}).status, 304);
    EXPECT_EQ(ask("br", {{"If-None-Match", ask("gzip").header("ETag")}}).status, 200);
}

TEST_F(SiblingTest, WhereThereIsAChoiceItIsSaid) {
    EXPECT_EQ(ask("br").header("Vary"), "Accept-Encoding");
    EXPECT_EQ(get("/s/page.html").header("Vary"), "Accept-Encoding");
    EXPECT_EQ(ask("br", {{"If-None-Match", "*"}}).header("Vary"), "Accept-Encoding");
    write("alone", "x");
    EXPECT_EQ(get("/s/alone").header("Vary"), "");
}

TEST_F(SiblingTest, ChoiceIsSaidWithAnotherStatusAndMethodToo) {
    std::function<void()> reload;
    const vireo::Handler handler = vireo::impl::serveFiles(directory_.path().string(), {}, reload);
    const FileResult result =
        FileAsker::ask("GET", "/s/page.html", {{"Accept-Encoding", "br"}}, {"/s/{path:path}"},
                       [&handler](vireo::impl::RequestData& request, vireo::impl::ResponseState& state) {
                           state.answer.status = 203;
                           vireo::Response response = vireo::impl::ResponseAccess::Of(state);
                           handler(request.request, response);
                       });
    EXPECT_EQ(result.status, 203);
    EXPECT_EQ(result.header("Content-Encoding"), "br");
    EXPECT_EQ(result.header("Vary"), "Accept-Encoding");
    EXPECT_EQ(serve().get("/s/page.html", {{"Accept-Encoding", "br"}}, "POST").header("Vary"), "Accept-Encoding");
}

TEST_F(SiblingTest, ClientThatHasOneIsToldOfThatOne) {
    const FileResult result = ask("br", {{"If-None-Match", ask("br").header("ETag")}});
    EXPECT_EQ(result.status, 304);
    EXPECT_EQ(result.header("ETag"), ask("br").header("ETag"));
    EXPECT_EQ(result.header("Content-Encoding"), "br") << "for hooks";
}

TEST_F(SiblingTest, RangesAreOfTheFileItself) {
    const FileResult result = ask("br", {{"Range", "bytes=0-1"}});
    EXPECT_EQ(result.status, 206);
    EXPECT_EQ(result.body, "pl");
    EXPECT_EQ(result.header("Content-Encoding"), "");
}

TEST_F(SiblingTest, OlderOneIsOfAFileThatWas) {
    age(directory_.path() / "page.html.br", std::chrono::hours(3));
    EXPECT_EQ(ask("br, gzip").body, "gzipped");
    age(directory_.path() / "page.html.gz", std::chrono::hours(3));
    EXPECT_EQ(ask("br, gzip").body, "plain");
    EXPECT_EQ(ask("br, gzip").header("Vary"), "");
}

TEST_F(SiblingTest, TheyCanBeSwitchedOff) {
    const ServedDirectory served = serve(FileOptions().precompressed(false));
    EXPECT_EQ(served.get("/s/page.html", {{"Accept-Encoding", "br"}}).body, "plain");
    EXPECT_EQ(served.get("/s/page.html.br").body, "brotli");
}

// ---- One file ----

class OneFileTest : public FileAnswerTest {
protected:
    FileResult ask(const std::string& path, const std::string* name, const HeaderLines& lines = {}, int status = 200,
                   std::string_view method = "GET") const {
        return FileAsker::ask(method, "/", lines, {"/"},
                              [&](vireo::impl::RequestData& request, vireo::impl::ResponseState& state) {
                                  state.answer.status = status;
                                  vireo::impl::answerFile(request, state.answer, path, name);
                              });
    }
};

TEST_F(OneFileTest, IsConditionalAndHasRanges) {
    const std::string path = write("file.json", "{}").string();
    const FileResult result = ask(path, nullptr);
    EXPECT_EQ(result.header("Content-Type"), "application/json");
    EXPECT_EQ(result.header("Content-Disposition"), "");
    EXPECT_EQ(ask(path, nullptr, {{"If-None-Match", result.header("ETag")}}).status, 304);
    EXPECT_EQ(ask(path, nullptr, {{"Range", "bytes=1-"}}).body, "}");
    EXPECT_EQ(ask(directory_.path().string(), nullptr).status, 404);
    EXPECT_EQ(ask(path + "x", nullptr).status, 404);
}

TEST_F(OneFileTest, TakesThePlaceOfWhateverWasSet) {
    const std::string path = write("file", "content").string();
    const std::string tag = ask(path, nullptr).header("ETag");
    for (const HeaderLines& lines :
         std::vector<HeaderLines>{{}, {{"Range", "bytes=0-0,2-2"}}, {{"If-None-Match", tag}}}) {
        FileAsker::ask("GET", "/", lines, {"/"},
                       [&](vireo::impl::RequestData& request, vireo::impl::ResponseState& state) {
                           state.answer.begin = [](auto&&... /*arguments*/) {};
                           vireo::impl::answerFile(request, state.answer, path, nullptr);
                           EXPECT_FALSE(state.answer.begin);
                           EXPECT_TRUE(state.answer.isSet);
                       });
    }
}

TEST_F(OneFileTest, ConditionsAreNotAboutWhatCameOfAPost) {
    const std::string path = write("file", "content").string();
    EXPECT_EQ(ask(path, nullptr, {{"If-None-Match", "*"}}, 200, "POST").status, 200);
    EXPECT_EQ(ask(path, nullptr, {{"If-Match", "\"x\""}}, 200, "POST").status, 200);
}

TEST_F(OneFileTest, LastOfTwoCounts) {
    const std::string first = write("first", "content").string();
    const std::string second = write("second", "0123456789").string();
    const FileResult result = FileAsker::ask("GET", "/", {{"Range", "bytes=6-6"}}, {"/"},
                                             [&](vireo::impl::RequestData& request, vireo::impl::ResponseState& state) {
                                                 vireo::impl::answerFile(request, state.answer, first, nullptr);
                                                 EXPECT_EQ(state.answer.status, 206);
                                                 vireo::impl::answerFile(request, state.answer, second, nullptr);
                                             });
    EXPECT_EQ(result.status, 206);
    EXPECT_EQ(result.header("Content-Range"), "bytes 6-6/10");
    EXPECT_EQ(result.body, "6");
}

TEST_F(OneFileTest, LastOfTwoIsOfItsOwnKind) {
    const std::string first = write("first.html", "0123456789").string();
    const std::string second = write("second.txt", "text").string();
    const std::string tag = ask(first, nullptr).header("ETag");
    const std::string name = "kept.html";
    for (const HeaderLines& lines : std::vector<HeaderLines>{
             {}, {{"Range", "bytes=8-8"}}, {{"Range", "bytes=5-5,7-"}}, {{"If-None-Match", tag}}}) {
        const FileResult result = FileAsker::ask(
            "GET", "/", lines, {"/"}, [&](vireo::impl::RequestData& request, vireo::impl::ResponseState& state) {
                vireo::impl::answerFile(request, state.answer, first, &name);
                try {
                    vireo::impl::answerFile(request, state.answer, second, nullptr);
                } catch (const vireo::HttpError&) {
                    // Which has no such part.
                    EXPECT_FALSE(state.answer.isSet);
                    state.answer.setText("text", "text/plain; charset=utf-8");
                }
            });
        EXPECT_EQ(result.status, 200);
        EXPECT_EQ(result.header("Content-Type"), "text/plain; charset=utf-8");
        EXPECT_EQ(result.header("Content-Disposition"), "");
        EXPECT_EQ(result.header("Content-Range"), "");
        EXPECT_NE(result.header("ETag"), tag);
        EXPECT_EQ(result.body, "text");
    }
}

TEST_F(OneFileTest, TypeThatTheHandlerHasSetStays) {
    const std::string path = write("file.html", "").string();
    const FileResult result = FileAsker::ask("GET", "/", {}, {"/"},
                                             [&](vireo::impl::RequestData& request, vireo::impl::ResponseState& state) {
                                                 vireo::Response response = vireo::impl::ResponseAccess::Of(state);
                                                 response.type("text/x-mine").file(path);
                                                 vireo::impl::answerFile(request, state.answer, path, nullptr);
                                             });
    EXPECT_EQ(result.header("Content-Type"), "text/x-mine");
}

TEST_F(OneFileTest, PathWithAZeroByteIsNone) {
    const std::string path = write("file", "content").string();
    EXPECT_EQ(ask(path + std::string("\0.txt", 5), nullptr).status, 404);
}

TEST_F(OneFileTest, TimeThatLiesAheadIsNotTold) {
    constexpr std::int64_t Now = 1795305600;
    constexpr std::int64_t NsPerSecond = 1000000000;
    using vireo::impl::validatorsOf;
    EXPECT_EQ(validatorsOf({1, (Now + 5) * NsPerSecond, 0}, "", Now * NsPerSecond).lastModified, Now);
    EXPECT_EQ(validatorsOf({1, (Now - 5) * NsPerSecond, 0}, "", Now * NsPerSecond).lastModified, Now - 5);
}

TEST_F(OneFileTest, TimeBefore1970IsItsBeginning) {
    EXPECT_EQ(vireo::impl::validatorsOf({1, -5000000000, 0}, "", 0).lastModified, 0);
}

TEST_F(OneFileTest, NameThatBeginsWithADotHasNoTypeOfThat) {
    EXPECT_EQ(ask(write(".html", "").string(), nullptr).header("Content-Type"), "application/octet-stream");
    EXPECT_EQ(ask(write("a.html", "").string(), nullptr).header("Content-Type"), "text/html; charset=utf-8");
}

TEST_F(OneFileTest, PageOfAnErrorIsSentAsItIs) {
    const std::string path = write("missing.html", "missing").string();
    const FileResult result = ask(path, nullptr, {{"If-None-Match", "*"}, {"Range", "bytes=0-0"}}, 404);
    EXPECT_EQ(result.status, 404);
    EXPECT_EQ(result.body, "missing");
    EXPECT_EQ(result.header("ETag"), "");
}

TEST_F(OneFileTest, DownloadIsNamedInBothForms) {
    const std::string path = write("file", "").string();
    const std::string name = "r\xC3\xA9sum\xC3\xA9 \"1%\".pdf";
    EXPECT_EQ(ask(path, &name).header("Content-Disposition"),
              "attachment; filename=\"r__sum__ _1__.pdf\"; filename*=UTF-8''r%C3%A9sum%C3%A9%20%221%25%22.pdf");
}

// ---- A directory that changes ----

TEST_F(FileAnswerTest, DirectoryIsTheSameUntilItIsReloaded) {
    write("v1/file", "one");
    write("v2/file", "two");
    fs::rename(directory_.path() / "v1", directory_.path() / "live");
    const ServedDirectory served(directory_.path() / "live");
    fs::rename(directory_.path() / "live", directory_.path() / "old");
    fs::rename(directory_.path() / "v2", directory_.path() / "live");
    EXPECT_EQ(served.get("/s/file").body, "one");
    served.reload();
    EXPECT_EQ(served.get("/s/file").body, "two");
    fs::remove_all(directory_.path() / "old");
    fs::rename(directory_.path() / "live", directory_.path() / "away");
    served.reload();
    EXPECT_EQ(served.get("/s/file").body, "two");
}

} // namespace
