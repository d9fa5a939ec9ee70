// SPDX-License-Identifier: MIT
#pragma once

// The one way to windows.h, for the *_windows.cpp halves only: after the sockets, which the old winsock.h would break.
#include "NativeSockets.h"

#include <windows.h>
