#include "websocket/pool/PoolState.h"

#include "vireo/WebSocketWorkerThread.h"
#include "websocket/WebSocketState.h"

#include <algorithm>
#include <list>
#include <utility>

namespace ql::impl {

namespace {

/// From so many connections on a poll call costs more than the two switches between threads that a pause takes.
constexpr std::size_t ManyConnections = 200;

} // namespace

PoolMember& memberOf(const PoolState::Connection& socket) {
    return WebSocketState::of(*socket);
}

PoolState::PoolState(http::WebSocketThread& pool)
    : mutex(pool.mutex_),
      workers(pool.workers_),
      pollSet(pool.pollSet_),
      readyQueue(pool.readyQueue_),
      pollThreadWaiting(pool.pollThreadWaiting_),
      running(pool.running_),
      pollWaker(std::make_shared<PollWaker>()),
      workAvailable_(pool.workAvailable_),
      pollWakeup_(pool.pollWakeup_) {}

PoolState::~PoolState() = default;

void PoolState::addWebSocket(Connection& socket) {
    if (!socket) {
        return;
    }
    memberOf(socket).setPollWaker(pollWaker);
    {
        qlMutexLocker lock(mutex);
        if (running) {
            appendToPollSet(socket);
            lock.unlock();
            pollWaker->wake();
            return;
        }
    }
    memberOf(socket).close();
}

void PoolState::getFirstWebSocket(Connection& socket) {
    Connection first;
    {
        qlMutexLocker lock(mutex);
        if (!running) {
            return;
        }
        waitForReady();
        if (!running) {
            return;
        }
        first = takeReady();
    }
    socket = std::move(first);
}

void PoolState::giveBackWebSocket(Connection& socket) {
    if (!socket) {
        return;
    }
    if (!memberOf(socket).isReadPending()) {
        addWebSocket(socket);
        return;
    }
    memberOf(socket).setPollWaker(pollWaker);
    {
        qlMutexLocker lock(mutex);
        if (running) {
            readyQueue.append(socket);
            workAvailable_.wakeOne();
            return;
        }
    }
    memberOf(socket).close();
}

void PoolState::closeAll() {
    Connections idle;
    std::list<Connection> ready;
    {
        qlMutexLocker lock(mutex);
        idle.swap(pollSet);
        ready = readyQueue.takeAll();
    }
    for (const Connection& socket : idle) {
        memberOf(socket).close();
    }
    for (const Connection& socket : ready) {
        memberOf(socket).close();
    }
}

void PoolState::stop() {
    {
        qlMutexLocker lock(mutex);
        running = false;
        pollWakeup_.wakeAll();
        workAvailable_.wakeAll();
    }
    pollWaker->wake();
}

PoolState::Connection PoolState::takeForWorker() {
    qlMutexLocker lock(mutex);
    if (!running) {
        return nullptr;
    }
    waitForReady();
    return takeReady();
}

bool PoolState::exchangeForWorker(Connection& socket) {
    qlMutexLocker lock(mutex);
    if (!running) {
        return false;
    }
    if (memberOf(socket).isReadPending()) {
        readyQueue.append(socket);
    } else {
        appendToPollSet(socket);
    }
    waitForReady();
    socket = takeReady();
    return true;
}

void PoolState::waitForReady() {
    while (readyQueue.isEmpty() && running) {
        // Not at each give-back: while others are ready no worker is free, and a poll now would find little. So one
        // wake-up and one poll serve all that were given back meanwhile.
        if (!pollSet.empty()) {
            pollWaker->wake();
        }
        workAvailable_.wait(&mutex, qlWaitCondition::NoTimeLimit);
    }
}

PoolState::Connection PoolState::takeReady() {
    Connection first = readyQueue.take();
    if (first && readyBeforePoll_ > 0 && --readyBeforePoll_ == 0) {
        pollWakeup_.wakeAll();
    }
    if (!readyQueue.isEmpty()) {
        // Appending woke one only. Each that takes wakes the next, until none waits or nothing is left.
        workAvailable_.wakeOne();
    }
    return first;
}

void PoolState::appendToPollSet(Connection& socket) {
    const std::size_t needed = pollSet.size() + polledCount + 1;
    if (pollSet.capacity() < needed) {
        pollSet.reserve(std::max(needed, 2 * pollSet.capacity()));
    }
    pollSet.push_back(std::move(socket));
    if (pollThreadWaiting) {
        pollWakeup_.wakeAll();
    }
}

void PoolState::wakeWorker() {
    workAvailable_.wakeOne();
}

void PoolState::waitForConnections(unsigned long ms) {
    pollThreadWaiting = true;
    pollWakeup_.wait(&mutex, ms);
    pollThreadWaiting = false;
}

void PoolState::pauseForWorkers(unsigned long ms) {
    if (!running || readyQueue.isEmpty() || polledCount + readyQueue.size() + pollSet.size() < ManyConnections) {
        return;
    }
    readyBeforePoll_ = readyQueue.size();
    pollWakeup_.wait(&mutex, ms);
    readyBeforePoll_ = 0;
}

} // namespace ql::impl
