#pragma once

#include <atomic>
#include <cstddef>

namespace vireotest {

/// Makes one of the calling thread's next allocations throw std::bad_alloc: 1 is the very next; 0 for none.
void failAllocation(std::size_t nth);

/// The same for all threads but the calling one, which are counted together: for what happens on threads of the
/// library.
void failAllocationOfOthers(std::size_t nth);
/// And those behind it: so many in a row.
void failAllocationsOfOthers(std::size_t nth, std::size_t inARow);

/// Spares the calling thread from that, too.
void spareThisThread();

/// How many have thrown so far, on all threads.
extern std::atomic<std::size_t> allocationFailures;

/// How many are not freed yet, of all threads.
extern std::atomic<std::size_t> livingAllocations;

} // namespace vireotest
