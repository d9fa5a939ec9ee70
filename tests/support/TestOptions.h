#pragma once

#include "vireo/ServerOptions.h"

namespace vireotest {

/// Whether servers of tests wait by events, which the environment variable VIREO_TEST_WAITING says: every test of a
/// server runs in both modes.
bool isEventMode();

/// Options as they come, but for the way of waiting.
ql::http::ServerOptions optionsOfTests();

} // namespace vireotest
