#pragma once

namespace vireotest {

class Choices;

/// A pool without workers, driven by this thread, beside a record of where each connection must be.
///
/// The poll thread is the only other one that lives on. Whenever the record is compared, everything has had its effect:
/// what has news has left the poll set. In between, operations overlap with the poll thread as they happen to.
/// @throws std::logic_error when pool and record differ.
void drivePoolModel(Choices& input);

} // namespace vireotest
