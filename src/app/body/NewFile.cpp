#include "vireo/app/NewFile.h"

#include "app/body/NewFileState.h"
#include "app/kernel/Throw.h"
#include "vireo/app/ClientGone.h"
#include "vireo/app/HttpError.h"

namespace vireo {

namespace {

impl::NewFileState& unkept(impl::NewFileState& state) {
    if (state.file.isKept()) {
        impl::throwLogicError("the new file is kept already, as " + state.file.path());
    }
    return state;
}

} // namespace

NewFile::NewFile(const std::string& directory) : state_(std::make_unique<impl::NewFileState>(directory, nullptr)) {}

NewFile::NewFile(NewFile&& other) noexcept = default;

NewFile& NewFile::operator=(NewFile&& other) noexcept = default;

NewFile::~NewFile() = default;

void NewFile::write(std::string_view bytes) {
    unkept(*state_).file.write(bytes);
}

void NewFile::keepAs(const std::string& name) {
    impl::NewFileState& state = unkept(*state_);
    if (!impl::isFileName(name)) {
        throw HttpError(400, "no name of a file, which is short, begins without a dot and has no slash or backslash");
    }
    if (state.fate && state.fate->isCutShort) {
        throw ClientGone();
    }
    state.file.keepAs(impl::directoryOf(state.file.path()) + name);
}

std::uint64_t NewFile::size() const {
    return state_->file.size();
}

} // namespace vireo
