// SPDX-License-Identifier: MIT
#pragma once

#include <microhttpd.h>

namespace ql::http {

class HttpServer;

/// True when the request's headers ask for a WebSocket. The comparison is case-sensitive, "Upgrade: WebSocket" and a
/// "Connection" that contains "Upgrade": a reverse proxy in front sets them so, and what comes directly from a
/// browser, in lower case, is an ordinary request for the application to answer.
bool isWebSocketUpgrade(MHD_Connection* connection);

/// Answers the opening handshake (RFC 6455 section 4.2).
MHD_Result answerWebSocketUpgrade(HttpServer& server, MHD_Connection* connection, const char* method,
                                  const char* version);

/// Wraps an upgraded socket and gives it to the application.
void handOverUpgradedSocket(HttpServer& server, MHD_socket socket, MHD_UpgradeResponseHandle* handle) noexcept;

} // namespace ql::http
