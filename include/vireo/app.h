// SPDX-License-Identifier: MIT
#pragma once

/// @file
/// All of the toolkit but those headers that have to be asked for by themselves: Json.h, TestClient.h, AllowedHosts.h,
/// Authentication.h, Compression.h, Cors.h, CrossOriginProtection.h, RateLimit.h, SecurityHeaders.h, Session.h and
/// Timeout.h.

#include "vireo/app/App.h"
#include "vireo/app/Body.h"
#include "vireo/app/ClientGone.h"
#include "vireo/app/EventChannel.h"
#include "vireo/app/FileOptions.h"
#include "vireo/app/Form.h"
#include "vireo/app/Group.h"
#include "vireo/app/Handler.h"
#include "vireo/app/HttpError.h"
#include "vireo/app/Later.h"
#include "vireo/app/NewFile.h"
#include "vireo/app/Output.h"
#include "vireo/app/Request.h"
#include "vireo/app/RequestKey.h"
#include "vireo/app/Response.h"
#include "vireo/app/Room.h"
#include "vireo/app/RoomBus.h"
#include "vireo/app/Route.h"
#include "vireo/app/RunOptions.h"
#include "vireo/app/RunSettings.h"
#include "vireo/app/Socket.h"
#include "vireo/app/SocketOpening.h"
