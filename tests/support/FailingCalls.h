#pragma once

#include <cstddef>

namespace vireotest {

/// What can be made to fail besides allocations (FailingAllocation.h). Whoever links FailingCalls_posix.cpp calls the
/// engine, the system's threads and its sockets through it.
enum class FailingCall {
    Engine,      ///< functions of the engine that the library calls
    ThreadStart, ///< anybody's, the engine's too
    Receive,     ///< of sockets that the engine has handed over
    Send,        ///< of the same
    Poll,        ///< of the same, by a pool or whoever accepts
    // Anybody's, the engine's too, but not of the thread that makes them fail.
    Descriptor,   ///< what asks the system for one: there is none left
    Watch,        ///< additions to an epoll
    SocketOption, ///< questions to sockets, and wishes
    FileRead,     ///< of a file's part, by whoever sends it: from then on the device is broken
};

/// Makes one of the next calls of the kind fail, on whatever thread: 1 is the very next; 0 for none.
void failCall(FailingCall kind, std::size_t nth);

/// What the system says when a poll is made to fail. ENOMEM at first.
void setPollError(int error);

/// How many calls have failed so far.
std::size_t callFailures();

} // namespace vireotest
