#pragma once

#include "app/files/FileAnswer.h"
#include "app/kernel/Answer.h"
#include "app/kernel/Endpoint.h"
#include "app/kernel/HandlerMark.h"
#include "app/kernel/Scope.h"
#include "app/request/RequestData.h"
#include "app/routing/RouteTable.h"
#include "support/TestFile.h"
#include "vireo/app/HttpError.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vireotest {

/// What a client got, or what was thrown to tell it.
struct FileResult {
    int status = 0;
    vireo::impl::AnswerHeaders headers{};
    std::string body{};
    /// Whether the body was left in its file.
    bool isFile = false;

    std::string header(std::string_view name) const {
        const std::string* const value = headers.find(name);
        return value == nullptr ? std::string() : *value;
    }
};

using HeaderLines = std::vector<ql::HeaderLine>;

/// Makes one request after the other, without a server.
class FileAsker {
public:
    /// @param answer gets the request's data and the answer to fill.
    using Asked = std::function<void(vireo::impl::RequestData&, vireo::impl::ResponseState&)>;

    static FileResult ask(std::string_view method, std::string_view target, const HeaderLines& lines,
                          const std::vector<std::string_view>& patterns, const Asked& asked) {
        NoSource source;
        vireo::impl::RequestData request(source, 0, method, target, lines, ql::IpAddress(), nullptr, nullptr);
        if (request.head.split() != vireo::impl::HeadView::Fault::None) {
            return {400};
        }
        if (!match(request.head, patterns)) {
            return {404};
        }
        const vireo::impl::Registration app;
        const vireo::impl::HandlerMark mark(app);
        vireo::impl::ResponseState state{{}, request};
        FileResult result;
        try {
            asked(request, state);
        } catch (const vireo::HttpError& error) {
            result.status = error.status();
            error.forEachHeader(
                [&](const std::string& name, const std::string& value) { result.headers.set(name, value); });
            return result;
        }
        result.status = state.answer.status;
        result.headers = state.answer.headers;
        result.body = state.answer.body;
        if (state.answer.file) {
            result.isFile = true;
            result.body.resize(static_cast<std::size_t>(state.answer.file->size));
            if (!state.answer.file->file.readAt(state.answer.file->offset, result.body)) {
                throw std::runtime_error("the file is shorter than its part");
            }
        }
        return result;
    }

private:
    class NoSource : public vireo::impl::RequestSource {
    public:
        vireo::impl::RequestBody& body() override { throw std::logic_error("no body"); }
        bool isGone() const override { return false; }
        const ql::HttpBaseRequest& core() const override { throw std::logic_error("no core"); }
    };

    static bool match(vireo::impl::HeadView& head, const std::vector<std::string_view>& patterns) {
        vireo::impl::RouteTable table;
        for (const std::string_view pattern : patterns) {
            auto endpoint = std::make_shared<vireo::impl::Endpoint>();
            endpoint->method = "GET";
            endpoint->pattern = pattern;
            table.add(endpoint);
        }
        const vireo::impl::Match found = table.match("GET", head.segments());
        if (found.outcome != vireo::impl::Match::Outcome::Found) {
            return false;
        }
        head.setMatch(found);
        return true;
    }
};

/// A directory that is served below "/s".
class ServedDirectory {
public:
    explicit ServedDirectory(const std::filesystem::path& path, const vireo::FileOptions& options = {})
        : handler_(vireo::impl::serveFiles(path.string(), options, reload_)) {}

    FileResult get(std::string_view target, const HeaderLines& lines = {}, std::string_view method = "GET") const {
        return FileAsker::ask(method, target, lines, {"/s", "/s/", "/s/{path:path}"},
                              [this](vireo::impl::RequestData& request, vireo::impl::ResponseState& state) {
                                  vireo::Response response = vireo::impl::ResponseAccess::Of(state);
                                  handler_(request.request, response);
                              });
    }
    void reload() const { reload_(); }

private:
    std::function<void()> reload_;
    const vireo::Handler handler_;
};

} // namespace vireotest
