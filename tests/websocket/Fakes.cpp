#include "websocket/Fakes.h"

#include <algorithm>
#include <utility>

namespace wstest {

namespace {

FakeSystem* currentSystem = nullptr;

std::int64_t fakeReceive(std::uint64_t socket, ql::impl::SocketBuffers buffers) {
    return currentSystem->receive ? currentSystem->receive(socket, buffers)
                                  : ql::impl::systemSocketFunctions.receive(socket, buffers);
}

std::int64_t fakeSend(std::uint64_t socket, ql::impl::SocketBuffers buffers) {
    return currentSystem->send ? currentSystem->send(socket, buffers)
                               : ql::impl::systemSocketFunctions.send(socket, buffers);
}

int fakePoll(void* entries, std::size_t count, int timeoutMs) {
    return currentSystem->poll ? currentSystem->poll(entries, count, timeoutMs)
                               : ql::impl::systemSocketFunctions.poll(entries, count, timeoutMs);
}

const ql::impl::SocketFunctions fakeFunctions = {&fakeReceive, &fakeSend, &fakePoll};

} // namespace

FakeSystem::FakeSystem() : previous_(std::exchange(currentSystem, this)) {
    ql::impl::socketFunctions = &fakeFunctions;
}

FakeSystem::~FakeSystem() {
    ql::impl::socketFunctions = previous_ != nullptr ? &fakeFunctions : &ql::impl::systemSocketFunctions;
    currentSystem = previous_;
}

UnlimitedPolls::UnlimitedPolls() {
    // So much longer than anybody's patience that no test mistakes its end for the wake-up.
    constexpr int LongerThanPatienceMs = 4 * static_cast<int>(std::chrono::milliseconds(Patience).count());
    system.poll = [this](void* entries, std::size_t count, int) {
        begun.add();
        return ql::impl::systemSocketFunctions.poll(entries, count, LongerThanPatienceMs);
    };
}

ScriptedSocket::ScriptedSocket() {
    system_.receive = [this](std::uint64_t, ql::impl::SocketBuffers buffers) { return receive(buffers); };
    system_.send = [this](std::uint64_t, ql::impl::SocketBuffers buffers) { return send(buffers); };
}

void ScriptedSocket::willReceive(Bytes bytes) {
    receives_.push_back({std::move(bytes)});
}

void ScriptedSocket::willReceiveError(SocketError error) {
    receives_.push_back({{}, true, error});
}

void ScriptedSocket::peerWillClose() {
    receives_.push_back({});
}

void ScriptedSocket::willAccept(std::uint64_t bytes) {
    sends_.push_back({bytes});
}

void ScriptedSocket::willRefuse(SocketError error) {
    sends_.push_back({0, true, error});
}

std::int64_t ScriptedSocket::receive(ql::impl::SocketBuffers buffers) {
    std::uint64_t room = 0;
    for (const ql::impl::SocketBuffer& buffer : buffers) {
        room += buffer.size;
    }
    receiveSizes.push_back(room);
    if (receives_.empty()) {
        setLastError(SocketError::WouldBlock);
        return -1;
    }
    ReceiveStep& step = receives_.front();
    if (step.fails) {
        setLastError(step.error);
        receives_.pop_front();
        return -1;
    }
    const std::size_t count = std::min(step.bytes.size(), static_cast<std::size_t>(room));
    std::size_t done = 0;
    for (const ql::impl::SocketBuffer& buffer : buffers) {
        const std::size_t part = std::min(count - done, static_cast<std::size_t>(buffer.size));
        std::copy_n(step.bytes.begin() + static_cast<std::ptrdiff_t>(done), part, buffer.data);
        done += part;
    }
    if (count < step.bytes.size()) {
        step.bytes.erase(step.bytes.begin(), step.bytes.begin() + static_cast<std::ptrdiff_t>(count));
    } else if (count > 0 || receives_.size() > 1) {
        receives_.pop_front();
    }
    return static_cast<std::int64_t>(count);
}

std::int64_t ScriptedSocket::send(ql::impl::SocketBuffers buffers) {
    Bytes offer;
    for (const ql::impl::SocketBuffer& buffer : buffers) {
        offer.insert(offer.end(), buffer.data, buffer.data + buffer.size);
    }
    sendOffers.push_back(offer);
    std::uint64_t accepted = offer.size();
    if (!sends_.empty()) {
        const SendStep step = sends_.front();
        sends_.pop_front();
        if (step.fails) {
            setLastError(step.error);
            return -1;
        }
        accepted = std::min(accepted, step.accepted);
    }
    sent.insert(sent.end(), offer.begin(), offer.begin() + static_cast<std::ptrdiff_t>(accepted));
    return static_cast<std::int64_t>(accepted);
}

} // namespace wstest
