#include "vireo/app/NewFile.h"
#include "vireo/app/HttpError.h"

#include "support/TestFile.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <system_error>
#include <utility>

namespace {

using vireo::NewFile;
using vireotest::contentOf;
using vireotest::TestDirectory;

class NewFileTest : public testing::Test {
protected:
    NewFile make() const { return NewFile(directory_.path().string()); }

    const TestDirectory directory_;
};

TEST_F(NewFileTest, WhatIsNotKeptIsRemoved) {
    {
        NewFile file = make();
        file.write("content");
        EXPECT_EQ(directory_.entries(), 1U);
    }
    EXPECT_EQ(directory_.entries(), 0U);
}

TEST_F(NewFileTest, KeptFileReplacesAnotherOne) {
    directory_.write("name", "old and longer");
    NewFile file = make();
    file.write("ne");
    file.write("w");
    EXPECT_EQ(contentOf(directory_.path() / "name"), "old and longer");
    file.keepAs("name");
    EXPECT_EQ(contentOf(directory_.path() / "name"), "new");
    EXPECT_EQ(file.size(), 3U);
}

TEST_F(NewFileTest, ItStaysWhenTheObjectGoes) {
    make().keepAs("empty");
    EXPECT_TRUE(exists(directory_.path() / "empty"));
    EXPECT_EQ(directory_.entries(), 1U);
}

TEST_F(NewFileTest, NameIsNoPath) {
    NewFile file = make();
    for (const std::string& name : {std::string(), std::string("."), std::string(".."), std::string("a/b"),
                                    std::string("/a"), std::string("a\\b"), std::string("a\0b", 3),
                                    std::string(".hidden"), std::string(".a.part"), std::string(256, 'a')}) {
        try {
            file.keepAs(name);
            ADD_FAILURE() << name;
        } catch (const vireo::HttpError& error) {
            EXPECT_EQ(error.status(), 400) << name;
        }
    }
    file.keepAs("name");
}

TEST_F(NewFileTest, MovedFileIsStillOne) {
    std::optional<NewFile> file = make();
    file->write("a");
    NewFile other = std::move(*file);
    file.reset();
    other.write("b");
    other.keepAs("name");
    EXPECT_EQ(contentOf(directory_.path() / "name"), "ab");
}

TEST_F(NewFileTest, MissingDirectoryIsASystemError) {
    EXPECT_THROW(NewFile((directory_.path() / "none").string()), std::system_error);
}

TEST_F(NewFileTest, NameThatCannotBeTakenLeavesNothingBehind) {
    std::filesystem::create_directories(directory_.path() / "name" / "full");
    {
        NewFile file = make();
        EXPECT_THROW(file.keepAs("name"), std::system_error);
    }
    EXPECT_EQ(directory_.entries(), 2U);
}

} // namespace
