// SPDX-License-Identifier: MIT
#pragma once

// The one way to windows.h, for the *_windows.cpp halves only: after the sockets, which the old winsock.h would
// break, and without the min and max macros.
#include "NativeSockets.h"

#include <windows.h>
