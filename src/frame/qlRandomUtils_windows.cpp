#include "vireo/support/qlRandomUtils.h"

#include <WindowsHeaders.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

#include <bcrypt.h>

void qlRandomUtils::Rand(char* out, std::uint64_t size) {
    while (size > 0) {
        const ULONG piece = static_cast<ULONG>(std::min<std::uint64_t>(size, std::numeric_limits<ULONG>::max()));
        const NTSTATUS status =
            BCryptGenRandom(nullptr, reinterpret_cast<PUCHAR>(out), piece, BCRYPT_USE_SYSTEM_PREFERRED_RNG);
        if (!BCRYPT_SUCCESS(status)) {
            throw std::runtime_error("the system has no random bytes to give");
        }
        out += piece;
        size -= piece;
    }
}
