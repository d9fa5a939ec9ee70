// SPDX-License-Identifier: MIT
#pragma once

// The socket interface of this platform. CMake puts one of the two headers of this name on the include path.

#ifndef WIN32_LEAN_AND_MEAN
#    define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#    error "The build options define it, so that the macros min and max are nowhere."
#endif
#include <winsock2.h>
#include <ws2tcpip.h>

using NativePollEntry = WSAPOLLFD;
