// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

#include <microhttpd.h>

// The functions that the engine calls. Each only casts and forwards; none lets an exception through.

namespace ql::impl {

/// MHD_AccessHandlerCallback; the closure is the HttpServer.
MHD_Result onAccess(void* server, MHD_Connection* connection, const char* url, const char* method, const char* version,
                    const char* uploadData, std::size_t* uploadDataSize, void** requestSlot) noexcept;

/// For MHD_OPTION_URI_LOG_CALLBACK: makes the request context, the value of the request's slot.
void* onUri(void* closure, const char* uri, MHD_Connection* connection) noexcept;

/// The same for a server that accepts by itself; the closure is its Front.
void* onUriOfFront(void* front, const char* uri, MHD_Connection* connection) noexcept;

/// MHD_RequestCompletedCallback; the closure is the HttpServer.
void onRequestCompleted(void* server, MHD_Connection* connection, void** requestSlot,
                        MHD_RequestTerminationCode code) noexcept;

/// MHD_NotifyConnectionCallback.
void onConnection(void* closure, MHD_Connection* connection, void** socketSlot,
                  MHD_ConnectionNotificationCode code) noexcept;

/// The same for a server that accepts by itself; the closure is its Front.
void onConnectionOfFront(void* front, MHD_Connection* connection, void** socketSlot,
                         MHD_ConnectionNotificationCode code) noexcept;

/// MHD_UpgradeHandler; the closure is the HttpServer.
void onUpgrade(void* server, MHD_Connection* connection, void* requestSlot, const char* extraBytes,
               std::size_t extraByteCount, MHD_socket socket, MHD_UpgradeResponseHandle* handle) noexcept;

} // namespace ql::impl
