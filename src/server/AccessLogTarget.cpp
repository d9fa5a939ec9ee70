#include "server/AccessLogTarget.h"

#include "server/LogFile.h"
#include "vireo/support/qlLog.h"

#include <cerrno>
#include <ios>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace ql::impl {

namespace {

std::error_code lastError() {
    return {errno == 0 ? EIO : errno, std::generic_category()};
}

/// Opens a file so that each write goes to the system as it is: a line that failed leaves nothing that could be
/// written later. Leaves the reason in errno.
std::ofstream openToAppend(const std::filesystem::path& path) {
    makeLogFile(path);
    errno = 0;
    std::ofstream file;
    file.rdbuf()->pubsetbuf(nullptr, 0);
    file.open(path, std::ios::binary | std::ios::app);
    return file;
}

} // namespace

AccessLogSink::AccessLogSink(Sink sink) : sink_(std::move(sink)) {
    if (!sink_) {
        throw std::invalid_argument("access log without a sink");
    }
}

void AccessLogSink::write(std::string line) {
    const qlMutexLocker locker(mutex_);
    sink_(line);
}

AccessLogFile::AccessLogFile(const std::filesystem::path& path) : path_(path) {
    AccessLogFile::reopen();
}

void AccessLogFile::write(std::string line) {
    line += '\n';
    const qlMutexLocker locker(mutex_);
    if (!file_.is_open()) {
        file_ = openToAppend(path_);
    }
    errno = 0;
    if (failed_) {
        // Ends what there may be of the lost line.
        line.insert(line.begin(), '\n');
    }
    file_.write(line.data(), static_cast<std::streamsize>(line.size()));
    if (file_) {
        failed_ = false;
        return;
    }
    ++lostLines_;
    if (!failed_) {
        qlLogObject(qlLogType::Failure, "httpserver")
            << "cannot write access log " << path_.string() << " : " << lastError().message();
    }
    failed_ = true;
    file_.close();
}

void AccessLogFile::reopen() {
    std::ofstream opened = openToAppend(path_);
    if (!opened) {
        throw std::system_error(lastError(), "cannot open access log " + path_.string());
    }
    const qlMutexLocker locker(mutex_);
    file_ = std::move(opened);
}

std::uint64_t AccessLogFile::getLostLineCount() const {
    const qlMutexLocker locker(mutex_);
    return lostLines_;
}

} // namespace ql::impl
