#pragma once

#include "DemoRequest.h"

/// The handlers that move bodies of any size, or take their time.
namespace demo {

/// Sends a body of up to 256 MiB back with its content type.
DemoRequest::Pause echo(DemoRequest& request);
/// Reads the body and answers JSON with its size and SHA-256.
DemoRequest::Pause upload(DemoRequest& request);
/// Sends `bytes` bytes; the one at position i, from 0, is i mod 251.
DemoRequest::Pause download(DemoRequest& request);
/// Sends `chunks` lines, one every `ms` milliseconds.
DemoRequest::Pause stream(DemoRequest& request);
/// Answers after `ms` milliseconds.
DemoRequest::Pause slow(DemoRequest& request);

} // namespace demo
