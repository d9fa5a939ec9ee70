#include "websocket/Fakes.h"

#include <algorithm>
#include <utility>

namespace wstest {

namespace {

FakeSystem* currentSystem = nullptr;

std::int64_t fakeReceive(std::uint64_t socket, void* data, std::uint64_t size) {
    return currentSystem->receive ? currentSystem->receive(socket, data, size)
                                  : ql::impl::systemSocketFunctions.receive(socket, data, size);
}

std::int64_t fakeSend(std::uint64_t socket, const void* data, std::uint64_t size) {
    return currentSystem->send ? currentSystem->send(socket, data, size)
                               : ql::impl::systemSocketFunctions.send(socket, data, size);
}

int fakePoll(void* entries, std::size_t count, int timeoutMs) {
    return currentSystem->poll ? currentSystem->poll(entries, count, timeoutMs)
                               : ql::impl::systemSocketFunctions.poll(entries, count, timeoutMs);
}

const ql::impl::SocketFunctions fakeFunctions = {&fakeReceive, &fakeSend, &fakePoll};

} // namespace

FakeSystem::FakeSystem() {
    currentSystem = this;
    ql::impl::socketFunctions = &fakeFunctions;
}

FakeSystem::~FakeSystem() {
    ql::impl::socketFunctions = &ql::impl::systemSocketFunctions;
    currentSystem = nullptr;
}

ScriptedSocket::ScriptedSocket() {
    system_.receive = [this](std::uint64_t, void* data, std::uint64_t size) { return receive(data, size); };
    system_.send = [this](std::uint64_t, const void* data, std::uint64_t size) { return send(data, size); };
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

std::int64_t ScriptedSocket::receive(void* data, std::uint64_t size) {
    receiveSizes.push_back(size);
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
    const std::size_t count = std::min(step.bytes.size(), static_cast<std::size_t>(size));
    std::copy_n(step.bytes.begin(), count, static_cast<unsigned char*>(data));
    if (count < step.bytes.size()) {
        step.bytes.erase(step.bytes.begin(), step.bytes.begin() + static_cast<std::ptrdiff_t>(count));
    } else if (count > 0 || receives_.size() > 1) {
        receives_.pop_front();
    }
    return static_cast<std::int64_t>(count);
}

std::int64_t ScriptedSocket::send(const void* data, std::uint64_t size) {
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    sendOffers.emplace_back(bytes, bytes + size);
    std::uint64_t accepted = size;
    if (!sends_.empty()) {
        const SendStep step = sends_.front();
        sends_.pop_front();
        if (step.fails) {
            setLastError(step.error);
            return -1;
        }
        accepted = std::min(size, step.accepted);
    }
    sent.insert(sent.end(), bytes, bytes + accepted);
    return static_cast<std::int64_t>(accepted);
}

} // namespace wstest
