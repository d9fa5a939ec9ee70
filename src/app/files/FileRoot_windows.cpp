#include "app/files/FileRoot.h"

#include "app/files/FileCalls_windows.h"
#include "app/kernel/Throw.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <string_view>
#include <utility>

namespace vireo::impl {

namespace {

/// From 1601 to 1970, in units of 100 ns.
constexpr std::int64_t EpochOffset = 116444736000000000;
constexpr std::int64_t NsPerUnit = 100;
/// Up to the year 2262, as far as nanoseconds can be counted.
constexpr std::int64_t MostUnits = (std::numeric_limits<std::int64_t>::max)() / NsPerUnit;

OwnFile openPath(const std::wstring& path) {
    if (path.find(L'\0') != std::wstring::npos) {
        // The system would take what stands before it.
        return {};
    }
    const HANDLE file =
        ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    return file == INVALID_HANDLE_VALUE ? OwnFile() : OwnFile(reinterpret_cast<std::uintptr_t>(file));
}

/// Where an open file is, with all links followed; empty when the system does not say.
std::wstring pathOf(const OwnFile& file) {
    const DWORD size = ::GetFinalPathNameByHandleW(handleOf(file), nullptr, 0, FILE_NAME_NORMALIZED);
    std::wstring path(size, L'\0');
    const DWORD length = ::GetFinalPathNameByHandleW(handleOf(file), path.data(), size, FILE_NAME_NORMALIZED);
    path.resize(length < size ? length : 0);
    return path;
}

std::int64_t nanoseconds(const LARGE_INTEGER& time) {
    const auto units = static_cast<std::int64_t>(time.QuadPart) - EpochOffset;
    return std::clamp(units, -MostUnits, MostUnits) * NsPerUnit;
}

FoundFile found(OwnFile&& file) {
    FILE_BASIC_INFO times{};
    FILE_STANDARD_INFO facts{};
    if (!file.isOpen() || ::GetFileType(handleOf(file)) != FILE_TYPE_DISK ||
        ::GetFileInformationByHandleEx(handleOf(file), FileBasicInfo, &times, sizeof times) == 0 ||
        ::GetFileInformationByHandleEx(handleOf(file), FileStandardInfo, &facts, sizeof facts) == 0) {
        return {};
    }
    return {facts.Directory != 0 ? FoundFile::Kind::Directory : FoundFile::Kind::File,
            std::move(file),
            {static_cast<std::uint64_t>(facts.EndOfFile.QuadPart), nanoseconds(times.LastWriteTime),
             nanoseconds(times.ChangeTime)}};
}

/// Ends a search when it goes.
class Search {
public:
    explicit Search(const std::wstring& pattern) : handle_(::FindFirstFileW(pattern.c_str(), &entry_)) {}
    ~Search() {
        if (isGood()) {
            ::FindClose(handle_);
        }
    }
    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;

    bool isGood() const { return handle_ != INVALID_HANDLE_VALUE; }
    const WIN32_FIND_DATAW& entry() const { return entry_; }
    bool next() { return ::FindNextFileW(handle_, &entry_) != 0; }

private:
    WIN32_FIND_DATAW entry_{};
    const HANDLE handle_;
};

void append(std::wstring& path, std::wstring_view name) {
    path.append(path.ends_with(L'\\') ? L"" : L"\\").append(name);
}

/// Whether each name stands in its directory as it is spelled.
bool areNames(std::wstring path, std::span<const std::string_view> segments) {
    return std::ranges::all_of(segments, [&path](std::string_view segment) {
        const std::wstring name = wideOf(segment);
        append(path, name);
        const Search search(path);
        return search.isGood() && name == search.entry().cFileName;
    });
}

} // namespace

FoundFile openFile(const std::string& path) {
    return found(openPath(wideOf(path)));
}

FileRoot::FileRoot(const std::string& path) : directory_(openPath(wideOf(path))) {
    if (found(openPath(wideOf(path))).kind != FoundFile::Kind::Directory) {
        throwSystemError(static_cast<int>(ERROR_PATH_NOT_FOUND), "the directory of files " + path);
    }
}

FoundFile FileRoot::open(std::span<const std::string_view> segments) const {
    const std::wstring root = pathOf(directory_);
    std::wstring path = root;
    for (const std::string_view segment : segments) {
        append(path, wideOf(segment));
    }
    OwnFile file = root.empty() ? OwnFile() : openPath(path);
    if (!file.isOpen()) {
        return {};
    }
    // A link may have led elsewhere.
    const std::wstring place = pathOf(file);
    const bool isBeneath = place.starts_with(root) &&
                           (place.size() == root.size() || root.ends_with(L'\\') || place[root.size()] == L'\\');
    // The system takes a name in any case of its letters, and by its second name. Routes don't: what is found under
    // another spelling would be found past the rules of a group that has the right one for its prefix.
    return isBeneath && (place == path || areNames(root, segments)) ? found(std::move(file)) : FoundFile{};
}

std::vector<DirectoryEntry> FileRoot::list(const FoundFile& directory) {
    std::vector<DirectoryEntry> entries;
    Search search(pathOf(directory.file) + L"\\*");
    if (!search.isGood()) {
        return entries;
    }
    do {
        const WIN32_FIND_DATAW& entry = search.entry();
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
            entries.push_back({narrowOf(entry.cFileName), (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0,
                               (static_cast<std::uint64_t>(entry.nFileSizeHigh) << 32U) | entry.nFileSizeLow});
        }
    } while (search.next());
    return entries;
}

} // namespace vireo::impl
