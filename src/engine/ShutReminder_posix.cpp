#include "engine/ShutReminder.h"

// The poll reports it.

namespace ql::impl {

void remindOfShut(ClientConnection& /*client*/) noexcept {}

bool takeReminder(EventServing& /*serving*/, MHD_Connection* /*connection*/, bool /*started*/) noexcept {
    return false;
}

} // namespace ql::impl
