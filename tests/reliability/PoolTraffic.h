#pragma once

namespace vireotest {

class Choices;

/// A pool with workers, and several threads of an application and of clients at once: in whatever order they get there,
/// the end must be the same.
///
/// Either all that is sent and written has its effect before the pool stops, or the pool stops in the middle.
/// @throws std::logic_error when something is lost, doubled or out of order, or ends otherwise than it must.
void runPoolTraffic(Choices& input);

} // namespace vireotest
