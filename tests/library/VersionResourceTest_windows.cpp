#include "vireo/Vireo.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <windows.h>

namespace {

/// The version information of the DLL that programs find by this name.
std::vector<char> readVersionInformation(const std::wstring& name) {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(LoadLibraryW(name.c_str()), path, MAX_PATH);
    std::vector<char> information(GetFileVersionInfoSizeW(path, nullptr));
    if (!GetFileVersionInfoW(path, 0, static_cast<DWORD>(information.size()), information.data())) {
        information.clear();
    }
    return information;
}

std::wstring readText(const std::vector<char>& information, const std::wstring& name) {
    void* text = nullptr;
    UINT length = 0;
    // US English, Unicode.
    const std::wstring path = L"\\StringFileInfo\\040904B0\\" + name;
    return VerQueryValueW(information.data(), path.c_str(), &text, &length) ? static_cast<const wchar_t*>(text) : L"";
}

std::wstring widen(const std::string& ascii) {
    return std::wstring(ascii.begin(), ascii.end());
}

class VersionResource : public testing::TestWithParam<std::string> {};

} // namespace

TEST_P(VersionResource, HoldsTheVersionOfTheLibrary) {
    const std::wstring name = widen(GetParam());
    const std::vector<char> information = readVersionInformation(name + L".dll");
    ASSERT_FALSE(information.empty());

    void* value = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueW(information.data(), L"\\", &value, &length));
    const VS_FIXEDFILEINFO& fixed = *static_cast<const VS_FIXEDFILEINFO*>(value);
    EXPECT_EQ(HIWORD(fixed.dwFileVersionMS), Vireo::Version::GetMajor());
    EXPECT_EQ(LOWORD(fixed.dwFileVersionMS), Vireo::Version::GetMinor());
    EXPECT_EQ(HIWORD(fixed.dwFileVersionLS), Vireo::Version::GetRelease());
    EXPECT_EQ(LOWORD(fixed.dwFileVersionLS), Vireo::Version::GetRevision());
    EXPECT_EQ(fixed.dwFileType, static_cast<DWORD>(VFT_DLL));

    EXPECT_EQ(readText(information, L"ProductName"), L"Vireo");
    EXPECT_EQ(readText(information, L"InternalName"), name);
    EXPECT_EQ(readText(information, L"OriginalFilename"), name + L".dll");
    EXPECT_EQ(readText(information, L"ProductVersion"),
              widen(Vireo::Version::GetDescStringMajorMinorReleaseRevision(false, false)));
    EXPECT_EQ(readText(information, L"FileVersion"),
              widen(Vireo::Version::GetDescStringMajorMinorReleaseRevision(false, true)));
}

INSTANTIATE_TEST_SUITE_P(Of, VersionResource, testing::Values("Vireo"), [](const auto& test) { return test.param; });
#ifdef HAS_APP
INSTANTIATE_TEST_SUITE_P(OfToolkit, VersionResource, testing::Values("VireoApp"),
                         [](const auto& test) { return test.param; });
#endif
