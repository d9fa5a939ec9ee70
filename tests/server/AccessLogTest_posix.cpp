#include "support/TestFile.h"
#include "vireo/AccessLog.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <sys/stat.h>

namespace {

using std::filesystem::perms;
using vireotest::TestDirectory;

/// What of the modes of files the process leaves out; as it was when it goes.
class Mask {
public:
    explicit Mask(mode_t mask) : before_(::umask(mask)) {}
    ~Mask() { ::umask(before_); }
    Mask(const Mask&) = delete;
    Mask& operator=(const Mask&) = delete;

private:
    const mode_t before_;
};

perms permsOf(const std::filesystem::path& path) {
    return std::filesystem::status(path).permissions();
}

class AccessLogModes : public testing::Test {
protected:
    void open() const { const ql::http::AccessLog log(ql::http::AccessLog::Format::Combined, path_); }

    const TestDirectory directory_;
    const std::filesystem::path path_ = directory_.path() / "access.log";
};

TEST_F(AccessLogModes, OthersMayNotReadANewFile) {
    const Mask mask(0);
    open();
    EXPECT_EQ(permsOf(path_), perms::owner_read | perms::owner_write | perms::group_read);
}

TEST_F(AccessLogModes, TheProcessMayAllowLess) {
    const Mask mask(0077);
    open();
    EXPECT_EQ(permsOf(path_), perms::owner_read | perms::owner_write);
}

TEST_F(AccessLogModes, FileThatIsThereKeepsItsOwn) {
    const auto mode = perms::owner_read | perms::owner_write | perms::group_read | perms::others_read;
    std::filesystem::permissions(directory_.write("access.log", "before\n"), mode);
    open();
    EXPECT_EQ(permsOf(path_), mode);
    EXPECT_EQ(vireotest::contentOf(path_), "before\n");
}

TEST_F(AccessLogModes, FileThatIsMadeAnewHasThemToo) {
    const Mask mask(0);
    ql::http::AccessLog log(ql::http::AccessLog::Format::Combined, path_);
    std::filesystem::rename(path_, directory_.path() / "access.log.1");
    log.reopen();
    EXPECT_EQ(permsOf(path_), perms::owner_read | perms::owner_write | perms::group_read);
}

} // namespace
