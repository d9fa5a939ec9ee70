// SPDX-License-Identifier: MIT
#pragma once

struct MHD_Connection;

namespace ql::impl {

/// Has the engine take up a suspended connection. Any thread.
void resumeInEngine(MHD_Connection* connection);

} // namespace ql::impl
