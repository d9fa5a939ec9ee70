#include "app/body/TemporaryFile.h"
#include "support/Pattern.h"
#include "support/TestFile.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using vireo::impl::TemporaryFile;
using vireotest::contentOf;
using vireotest::pattern;
using vireotest::TestDirectory;

constexpr const char* OtherFileSystem = "/dev/shm";

unsigned int modeOf(const std::filesystem::path& path) {
    struct stat found {};
    EXPECT_EQ(::stat(path.c_str(), &found), 0);
    return found.st_mode & 0777U;
}

/// Of this process; -1 when it does not have the file open.
int descriptorOf(const std::filesystem::path& path) {
    constexpr int Most = 4096;
    struct stat wanted {};
    struct stat found {};
    EXPECT_EQ(::stat(path.c_str(), &wanted), 0);
    for (int descriptor = 0; descriptor < Most; ++descriptor) {
        if (::fstat(descriptor, &found) == 0 && found.st_dev == wanted.st_dev && found.st_ino == wanted.st_ino) {
            return descriptor;
        }
    }
    return -1;
}

bool isOnOneFileSystem(const std::filesystem::path& left, const std::filesystem::path& right) {
    struct stat one {};
    struct stat other {};
    return ::stat(left.c_str(), &one) != 0 || ::stat(right.c_str(), &other) != 0 || one.st_dev == other.st_dev;
}

TEST(TemporaryFileTest, LiesWhereTheEnvironmentSays) {
    const char* const set = std::getenv("TMPDIR");
    const std::optional<std::string> before = set == nullptr ? std::nullopt : std::optional<std::string>(set);
    ::setenv("TMPDIR", "/of/the/environment", 1);
    EXPECT_EQ(vireo::impl::temporaryDirectory(), "/of/the/environment");
    ::setenv("TMPDIR", "", 1);
    EXPECT_EQ(vireo::impl::temporaryDirectory(), "/tmp");
    ::unsetenv("TMPDIR");
    EXPECT_EQ(vireo::impl::temporaryDirectory(), "/tmp");
    if (before) {
        ::setenv("TMPDIR", before->c_str(), 1);
    }
}

TEST(TemporaryFileTest, IsKeptAcrossTheBorderOfAFileSystem) {
    const TestDirectory directory;
    if (isOnOneFileSystem(directory.path(), OtherFileSystem)) {
        GTEST_SKIP() << "there is no second file system to write to";
    }
    const std::string content = pattern(200000);
    for (const bool isFinished : {false, true}) {
        TemporaryFile file(OtherFileSystem, TemporaryFile::Readers::Owner);
        const std::string before = file.path();
        file.write(content);
        if (isFinished) {
            file.finish();
        }
        file.keepAs((directory.path() / "kept").string());
        EXPECT_FALSE(std::filesystem::exists(before));
    }
    EXPECT_TRUE(contentOf(directory.path() / "kept") == content);
    EXPECT_EQ(directory.entries(), 1U);
    EXPECT_EQ(modeOf(directory.path() / "kept"), 0600U);
}

TEST(TemporaryFileTest, WhatCannotBeClosedIsNotKeptLaterEither) {
    for (const bool isFinished : {false, true}) {
        const TestDirectory directory;
        const std::string kept = (directory.path() / "kept").string();
        TemporaryFile file(directory.path().string(), TemporaryFile::Readers::Owner);
        file.write("content");
        ASSERT_EQ(::close(descriptorOf(file.path())), 0) << "so that the next close is refused";
        EXPECT_THROW(isFinished ? file.finish() : file.keepAs(kept), std::system_error);
        EXPECT_FALSE(file.isKept());
        EXPECT_THROW(file.keepAs(kept), std::system_error);
        EXPECT_EQ(directory.entries(), 0U);
    }
}

TEST(TemporaryFileTest, NameWithoutADirectoryIsInThisOne) {
    EXPECT_EQ(vireo::impl::directoryOf("name"), "./");
    EXPECT_EQ(vireo::impl::directoryOf("/a/name"), "/a/");
}

TEST(TemporaryFileTest, FilesOfFormsAreTheirOwnersAlone) {
    const TestDirectory directory;
    const TemporaryFile own(directory.path().string(), TemporaryFile::Readers::Owner);
    EXPECT_EQ(modeOf(own.path()), 0600U);
    const TemporaryFile usual(directory.path().string(), TemporaryFile::Readers::AsOthers);
    EXPECT_EQ(modeOf(usual.path()), modeOf(directory.write("other", "")));
}

} // namespace
