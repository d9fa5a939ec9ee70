#include "app/files/FileAnswer.h"

#include "app/files/FileRoot.h"
#include "app/files/FileRules.h"
#include "app/files/Listing.h"
#include "app/files/MimeTypes.h"
#include "app/files/PathRules.h"
#include "app/files/Representation.h"
#include "app/kernel/Answer.h"
#include "app/kernel/AutomaticAnswers.h"
#include "app/kernel/Endpoint.h"
#include "app/kernel/Work.h"
#include "app/request/RequestData.h"
#include "frame/ExceptionLog.h"
#include "vireo/app/HttpError.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlStringUtils.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace vireo::impl {

namespace {

using Segments = std::vector<std::string_view>;

constexpr int NotFound = 404;
constexpr int MovedPermanently = 301;

/// A compressed file beside another one.
struct Sibling {
    std::string_view coding;
    std::string_view extension;
};

/// As the server likes them.
constexpr std::array<Sibling, 2> Siblings = {{{"br", ".br"}, {"gzip", ".gz"}}};
constexpr std::string_view Identity = "identity";

std::string_view lastOf(std::string_view path) {
    const std::size_t slash = path.find_last_of(PathSeparators);
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

/// A quoted string of ASCII; what else there is becomes "_".
std::string inQuotes(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        const bool isPlain = c >= ' ' && c <= '~' && c != '"' && c != '\\' && c != '%';
        result += isPlain ? c : '_';
    }
    return result += '"';
}

/// RFC 6266: the name as old clients take it, and in UTF-8.
std::string dispositionOf(const std::string& name) {
    return "attachment; filename=" + inQuotes(name) + "; filename*=UTF-8''" + escapedSegment(name);
}

/// Serves one directory.
class Directory {
public:
    Directory(std::string path, const FileRules& rules)
        : path_(std::move(path)), rules_(rules), root_(std::make_shared<const FileRoot>(path_)) {}

    /// @param withFallback whether the page may be taken that stands for what is missing.
    /// @return whether there is something to answer with.
    bool answer(const RequestData& request, Answer& answer, bool withFallback) const;

    /// Opens the directory anew; where there is none any more, the one before stays.
    void reload() QL_EXCLUDES(mutex_);

private:
    std::shared_ptr<const FileRoot> root() const QL_EXCLUDES(mutex_) {
        const qlMutexLocker locker(mutex_);
        return root_;
    }

    bool areServed(std::span<const std::string_view> segments) const {
        return std::ranges::all_of(
            segments, [this](std::string_view segment) { return isPathSegment(segment, rules_.dotFiles); });
    }
    std::string mimeTypeOfFile(std::string_view name) const;
    void setCacheControl(Answer& answer) const;
    void answerFound(const HeadView& head, Answer& answer, const FileRoot& root, const Segments& segments,
                     FoundFile&& found) const;
    /// @return whether there is something to see of it.
    bool answerDirectory(const HeadView& head, Answer& answer, const FileRoot& root, Segments&& segments,
                         const FoundFile& directory) const;
    /// Whether there is something to see of a directory.
    bool isShown(const FileRoot& root, Segments segments) const;
    /// @return whether something stands for what is missing.
    bool answerFallback(const HeadView& head, Answer& answer, const FileRoot& root) const;
    /// Takes a compressed file in place of the one that is found, where the client likes that better.
    void chooseSibling(const HeadView& head, const FileRoot& root, const Segments& segments,
                       Representation& representation) const;

    const std::string path_;
    const FileRules rules_;
    mutable qlMutex mutex_;
    std::shared_ptr<const FileRoot> root_ QL_GUARDED_BY(mutex_);
};

void Directory::reload() {
    try {
        auto fresh = std::make_shared<const FileRoot>(path_);
        const qlMutexLocker locker(mutex_);
        root_.swap(fresh);
    } catch (...) {
        ql::impl::logCurrentException("opening a directory of files anew", "app");
    }
}

std::string Directory::mimeTypeOfFile(std::string_view name) const {
    std::string extension(extensionOf(name));
    qlStringUtils::toLower(extension);
    const auto own = rules_.types.find(extension);
    return own == rules_.types.end() ? std::string(mimeTypeOf(extension)) : own->second;
}

void Directory::setCacheControl(Answer& answer) const {
    if (!rules_.cacheControl.empty()) {
        answer.headers.set("Cache-Control", rules_.cacheControl);
    }
}

bool Directory::answer(const RequestData& request, Answer& answer, bool withFallback) const {
    const HeadView& head = request.head;
    const std::span<const std::string_view> rest = head.restSegments();
    const bool endsWithSlash = head.rawPath().ends_with('/');
    Segments segments(rest.begin(), rest.end());
    if (!segments.empty() && segments.back().empty()) {
        segments.pop_back();
    }
    if (!areServed(segments)) {
        return false;
    }
    const std::shared_ptr<const FileRoot> from = root();
    FoundFile found = from->open(segments);
    if (found.kind == FoundFile::Kind::File && !endsWithSlash) {
        answerFound(head, answer, *from, segments, std::move(found));
        return true;
    }
    if (found.kind == FoundFile::Kind::Directory && endsWithSlash) {
        if (answerDirectory(head, answer, *from, std::move(segments), found)) {
            return true;
        }
    } else if (found.kind == FoundFile::Kind::Directory && isShown(*from, segments)) {
        // From the segments, so that it begins with one slash: two would name another host.
        std::string target;
        for (const std::string_view segment : head.segments()) {
            target.append("/").append(escapedSegment(segment));
        }
        target.append("/").append(head.rawQuery().empty() ? "" : "?").append(head.rawQuery());
        answer.status = MovedPermanently;
        answer.headers.set("Location", target);
        answer.isSet = true;
        return true;
    }
    return withFallback && answerFallback(head, answer, *from);
}

void Directory::answerFound(const HeadView& head, Answer& answer, const FileRoot& root, const Segments& segments,
                            FoundFile&& found) const {
    Representation representation{std::move(found), mimeTypeOfFile(segments.back())};
    if (rules_.precompressed) {
        chooseSibling(head, root, segments, representation);
    }
    setCacheControl(answer);
    setRepresentation(head, answer, std::move(representation));
}

void Directory::chooseSibling(const HeadView& head, const FileRoot& root, const Segments& segments,
                              Representation& representation) const {
    std::vector<std::string_view> offers;
    std::array<FoundFile, Siblings.size()> found;
    for (std::size_t i = 0; i < Siblings.size(); ++i) {
        const std::string name = std::string(segments.back()).append(Siblings[i].extension);
        Segments path(segments);
        path.back() = name;
        found[i] = root.open(path);
        // An older one is of a file that there was before.
        if (found[i].kind == FoundFile::Kind::File &&
            found[i].facts.modifiedNs >= representation.found.facts.modifiedNs) {
            offers.push_back(Siblings[i].coding);
        }
    }
    representation.hasVariants = !offers.empty();
    if (offers.empty() || !head.line("Range").empty() || head.line("Accept-Encoding").empty()) {
        return;
    }
    offers.push_back(Identity);
    const std::string choice = head.acceptsEncoding(offers);
    for (std::size_t i = 0; i < Siblings.size(); ++i) {
        if (choice == Siblings[i].coding) {
            representation.found = std::move(found[i]);
            representation.coding = Siblings[i].coding;
        }
    }
}

bool Directory::isShown(const FileRoot& root, Segments segments) const {
    segments.push_back(rules_.index);
    return rules_.listing || (!rules_.index.empty() && root.open(segments).kind == FoundFile::Kind::File);
}

bool Directory::answerDirectory(const HeadView& head, Answer& answer, const FileRoot& root, Segments&& segments,
                                const FoundFile& directory) const {
    if (!rules_.index.empty()) {
        segments.push_back(rules_.index);
        FoundFile index = root.open(segments);
        if (index.kind == FoundFile::Kind::File) {
            answerFound(head, answer, root, segments, std::move(index));
            return true;
        }
        segments.pop_back();
    }
    if (!rules_.listing) {
        return false;
    }
    std::vector<DirectoryEntry> entries = FileRoot::list(directory);
    std::erase_if(entries, [this](const DirectoryEntry& entry) { return !isPathSegment(entry.name, rules_.dotFiles); });
    setCacheControl(answer);
    answer.setText(listingPage(head.path(), std::move(entries), segments.empty()), "text/html; charset=utf-8");
    return true;
}

bool Directory::answerFallback(const HeadView& head, Answer& answer, const FileRoot& root) const {
    const Segments segments = segmentsOf(rules_.fallback);
    FoundFile found = segments.empty() ? FoundFile{} : root.open(segments);
    if (found.kind != FoundFile::Kind::File) {
        return false;
    }
    answerFound(head, answer, root, segments, std::move(found));
    return true;
}

} // namespace

void answerFile(RequestData& request, Answer& answer, const std::string& path, const std::string* downloadName) {
    FoundFile found = openFile(path);
    if (found.kind != FoundFile::Kind::File) {
        throw HttpError(NotFound);
    }
    Representation representation{std::move(found), std::string(mimeTypeOf(extensionOf(lastOf(path))))};
    answer.dropBody();
    if (downloadName != nullptr) {
        answer.headers.set("Content-Disposition", dispositionOf(*downloadName));
    }
    setRepresentation(request.head, answer, std::move(representation));
}

Handler serveFiles(std::string directory, const FileOptions& options, std::function<void()>& reload) {
    const auto served = std::make_shared<Directory>(std::move(directory), FileRules::of(options));
    reload = [served] { served->reload(); };
    return [served](Request& request, Response& response) {
        ResponseState& state = ResponseAccess::state(response);
        // An API's clients want no page in place of what is missing.
        const bool withFallback = state.work == nullptr || !state.work->endpoint->isBelowGroup;
        if (served->answer(RequestAccess::data(request), state.answer, withFallback)) {
            return;
        }
        if (state.work == nullptr) {
            // There is no table to look into.
            throw HttpError(NotFound);
        }
        answerBesideDirectories(request, response);
    };
}

} // namespace vireo::impl
