#include "frame/ThreadName.h"

#include <WindowsHeaders.h>

namespace ql::impl {
namespace {

using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);

/// Null on systems before Windows 10 1607, which have no such function; so it cannot be linked by name.
SetDescription findSetDescription() {
    const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
    if (kernel == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<SetDescription>(reinterpret_cast<void*>(GetProcAddress(kernel, "SetThreadDescription")));
}

} // namespace

void setCurrentThreadName(const std::string& name) {
    static const SetDescription setDescription = findSetDescription();
    if (setDescription == nullptr) {
        return;
    }
    wchar_t wide[MaxThreadNameLength + 1] = {};
    const int length = MultiByteToWideChar(CP_UTF8, 0, name.data(), static_cast<int>(name.size()), wide,
                                           static_cast<int>(MaxThreadNameLength));
    if (length > 0) {
        setDescription(GetCurrentThread(), wide);
    }
}

} // namespace ql::impl
