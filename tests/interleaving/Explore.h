#pragma once

#include <cstdint>
#include <functional>

namespace vireotest {

/// What is to be shown of a case: an ordinary function that starts threads, joins them all and checks. All threads that
/// it and the library start are scheduled; it is run again and again, from the same begin.
using ThreadedCase = std::function<void()>;

/// Goes through all interleavings of the case in which threads that could go on are held up so many times. Ends the
/// process with exit code 1 and the reason when a thread hangs, the case fails, or, where nothing in it is to wait for
/// the time, one waits for it.
/// @return how many there were.
std::uint64_t exploreAll(const ThreadedCase& threadedCase, std::size_t preemptions);

/// The same for so many random ones, in which threads are held up as it comes; times VIREO_INTERLEAVINGS, where that is
/// set. VIREO_SEED runs the one again that has failed.
std::uint64_t exploreRandomly(const ThreadedCase& threadedCase, std::uint64_t runs);

/// Of a case: nothing has waited for the time up to now. What is woken in time never does.
void expectNoTimeHasPassed();

} // namespace vireotest
