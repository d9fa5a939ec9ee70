#include "app/files/AskedFiles.h"
#include "app/files/LinkPolicy_posix.h"
#include "support/TestFile.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#ifdef __linux__
#    include <linux/filter.h>
#    include <linux/seccomp.h>
#    include <sys/prctl.h>
#    include <sys/syscall.h>
#endif

namespace {

namespace fs = std::filesystem;
using vireo::impl::LinkPolicy;
using vireotest::FileResult;
using vireotest::ServedDirectory;
using vireotest::TestDirectory;

constexpr std::string_view Secret = "the secret";

/// A root with a secret beside it, and all kinds of links.
class TraversalTest : public testing::TestWithParam<LinkPolicy> {
protected:
    TraversalTest() {
        directory_.write("secret", Secret);
        directory_.write("outside/secret", Secret);
        directory_.write("root/a/b/file", "file");
        directory_.write("root/index.html", "index");
        fs::create_symlink("../secret", root_ / "relative");
        fs::create_symlink(directory_.path() / "secret", root_ / "absolute");
        fs::create_symlink("..", root_ / "up");
        fs::create_directory_symlink("../outside", root_ / "outside");
        fs::create_symlink("/proc/self/root" + (directory_.path() / "secret").string(), root_ / "magic");
        fs::create_symlink("loop", root_ / "loop");
        fs::create_symlink("a/b/file", root_ / "inside");
        fs::create_symlink("relative", root_ / "chain");
        fs::create_symlink("../../../secret", root_ / "a" / "deep");
        vireo::impl::linkPolicy = GetParam();
    }
    ~TraversalTest() override { vireo::impl::linkPolicy = LinkPolicy::Beneath; }

    const TestDirectory directory_;
    const fs::path root_ = directory_.path() / "root";
};

/// Each way up in each of its spellings, at each depth.
std::vector<std::string> traversals() {
    const std::vector<std::string> ups = {"..",           "%2e%2e",      "%2E.",   ".%2e",       "..%2f..",
                                          "..%2F",        "..%5c..",     "..\\..", "..%00",      "%252e%252e",
                                          "..;",          "...",         "....//", "..%c0%af..", "..%255c",
                                          "%c0%ae%c0%ae", "..%ef%bc%8f", ".%00.",  "\xC0\xAE."};
    const std::vector<std::string> befores = {"/s/", "/s//", "/s/a/", "/s/a/b/", "/s/./", "/s/a/%2f", "/s/x/"};
    std::vector<std::string> targets = {
        "/s/relative", "/s/absolute",     "/s/up/secret",         "/s/outside/secret", "/s/magic",         "/s/loop",
        "/s/chain",    "/s/a/deep",       "/s/up/root/up/secret", "/s/%2fetc/passwd",  "/s//etc/passwd",   "/s/%2e",
        "/s/.",        "/s/file%00.html", "/s/index.html%00",     "/s/C:%5csecret",    "/s/%5c%5chost%5cx"};
    for (const std::string& before : befores) {
        for (const std::string& up : ups) {
            targets.push_back(before + up + "/secret");
            targets.push_back(before + up + "/" + up + "/secret");
            targets.push_back(before + up + "/" + up + "/" + up + "/etc/passwd");
        }
    }
    return targets;
}

TEST_P(TraversalTest, NothingOutsideIsServed) {
    const ServedDirectory served(root_, vireo::FileOptions().dotFiles().listing());
    const std::vector<std::string> targets = traversals();
    EXPECT_GE(targets.size(), 200U);
    for (const std::string& target : targets) {
        const FileResult result = served.get(target);
        EXPECT_TRUE(result.status == 400 || result.status == 404) << target << " : " << result.status;
        EXPECT_EQ(result.body.find(Secret), std::string::npos) << target;
    }
}

TEST_P(TraversalTest, LinkWithinTheRootIsFollowedWhereTheSystemCanTell) {
    const ServedDirectory served(root_);
    const FileResult result = served.get("/s/inside");
    if (GetParam() == LinkPolicy::Beneath) {
        EXPECT_EQ(result.body, "file");
    } else {
        EXPECT_EQ(result.status, 404);
    }
    EXPECT_EQ(served.get("/s/a/b/file").body, "file");
    EXPECT_EQ(served.get("/s/").body, "index");
}

TEST_P(TraversalTest, FallbackIsFoundWhateverTheSystemCanTell) {
    for (const char* path : {"/index.html", "a//b/file", "/a/b/file"}) {
        const ServedDirectory served(root_, vireo::FileOptions().fallback(path));
        EXPECT_EQ(served.get("/s/none").status, 200) << path;
    }
}

TEST_P(TraversalTest, WhatIsNoFileIsNotOpenedForLong) {
    ASSERT_EQ(::mkfifo((root_ / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(ServedDirectory(root_).get("/s/pipe").status, 404);
    ServedDirectory devices("/dev");
    EXPECT_EQ(devices.get("/s/null").status, 404);
}

INSTANTIATE_TEST_SUITE_P(Policies, TraversalTest, testing::Values(LinkPolicy::Beneath, LinkPolicy::None),
                         [](const testing::TestParamInfo<LinkPolicy>& policy) {
                             return policy.param == LinkPolicy::Beneath ? "Beneath" : "WithoutLinks";
                         });

TEST(FileRootTest, WantOfDescriptorsDoesNotMakeAFileMissing) {
    for (const int error : {EMFILE, ENFILE, ENOMEM, EIO}) {
        EXPECT_TRUE(vireo::impl::isShortage(error)) << error;
    }
    for (const int error : {ENOENT, ENOTDIR, EACCES, ELOOP, ENAMETOOLONG, ENXIO, EXDEV}) {
        EXPECT_FALSE(vireo::impl::isShortage(error)) << error;
    }
}

TEST(FileRootTest, FileThatMayNotBeOpenedDoesNotMakeTheCallMissing) {
    const TestDirectory directory;
    const int opened = ::open(directory.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(opened, 0);
    EXPECT_TRUE(vireo::impl::isOpenat2Missing(opened, ENOSYS));
    EXPECT_FALSE(vireo::impl::isOpenat2Missing(opened, ENOENT));
    errno = 0;
    EXPECT_FALSE(vireo::impl::isOpenat2Missing(opened, EPERM));
    EXPECT_EQ(errno, EPERM);
    ::close(opened);
}

#ifdef __linux__

/// From now on the system refuses the call, as containers of old do. @return whether it lets itself be told so.
bool refuseOpenat2() {
    std::array<sock_filter, 4> program{{{BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
                                        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, SYS_openat2},
                                        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | EPERM},
                                        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW}}};
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST(FileRootDeathTest, WhereTheCallIsRefusedNoLinkIsFollowed) {
    const TestDirectory directory;
    directory.write("a/file", "file");
    fs::create_symlink("a/file", directory.path() / "link");
    const ServedDirectory served(directory.path());
    ASSERT_EQ(served.get("/s/link").status, 200);
    const auto askRefused = [&served] {
        if (!refuseOpenat2()) {
            return 1;
        }
        const bool isServed = served.get("/s/a/file").body == "file";
        return isServed && served.get("/s/link").status == 404 ? 0 : 2;
    };
    EXPECT_EXIT(std::_Exit(askRefused()), testing::ExitedWithCode(0), "");
}

#endif

TEST(FileRootTest, SwitchedLinkIsFollowedByAReload) {
    const TestDirectory directory;
    directory.write("v1/file", "one");
    directory.write("v2/file", "two");
    fs::create_directory_symlink("v1", directory.path() / "live");
    const ServedDirectory served(directory.path() / "live");
    fs::create_directory_symlink("v2", directory.path() / "next");
    fs::rename(directory.path() / "next", directory.path() / "live");
    EXPECT_EQ(served.get("/s/file").body, "one");
    served.reload();
    EXPECT_EQ(served.get("/s/file").body, "two");
}

} // namespace
