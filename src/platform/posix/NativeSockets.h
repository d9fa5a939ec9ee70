// SPDX-License-Identifier: MIT
#pragma once

// The socket interface of this platform. CMake puts one of the two headers of this name on the include path.

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

using NativePollEntry = pollfd;
