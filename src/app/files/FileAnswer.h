// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/FileOptions.h"
#include "vireo/app/Handler.h"

#include <functional>
#include <string>

namespace vireo::impl {

struct Answer;
struct RequestData;

/// What Response::file() and download() set: a file with its type, validators and, where asked for, a part of it.
/// @param downloadName null but for a download.
/// @throws HttpError 404 when there is no such regular file.
void answerFile(RequestData& request, Answer& answer, const std::string& path, const std::string* downloadName);

/// The handler of a directory; of a route with the rest of the path as `path`, or without it.
/// @param reload set to what opens the directory anew.
/// @throws std::system_error when there is no such directory.
Handler serveFiles(std::string directory, const FileOptions& options, std::function<void()>& reload);

} // namespace vireo::impl
