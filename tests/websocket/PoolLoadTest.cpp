#include "websocket/PoolFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <string>
#include <thread>

using namespace wstest;
using ql::http::WebSocket;

namespace {

/// Message `index` of connection `id`: tells both, and has a length of its own.
Bytes numbered(std::size_t id, std::size_t index) {
    std::string text = std::to_string(id) + ":" + std::to_string(index) + ":";
    text.append((id * 31 + index * 97) % 700, static_cast<char>('a' + index % 26));
    return toBytes(text);
}

} // namespace

class WebSocketPoolLoad : public PoolTest {};

TEST_F(WebSocketPoolLoad, ThousandConnectionsLoseDuplicateAndReorderNothing) {
    constexpr std::size_t Connections = 1000;
    constexpr std::size_t PerConnection = 10;
    constexpr std::size_t Clients = 2;
    ASSERT_TRUE(allowSockets(2 * Connections + 100));
    pool->startThreads(4);
    for (std::size_t id = 0; id < Connections; ++id) {
        addSocket();
    }

    std::atomic<std::size_t> wrong{0};
    std::vector<std::thread> clients;
    for (std::size_t client = 0; client < Clients; ++client) {
        clients.emplace_back([&, client] {
            // Some messages go one by one, some together.
            for (std::size_t round = 0; round < 2; ++round) {
                const std::size_t begin = round * PerConnection / 2;
                const std::size_t end = begin + PerConnection / 2;
                for (std::size_t id = client; id < Connections; id += Clients) {
                    Bytes stream;
                    for (std::size_t index = begin; index < end; ++index) {
                        const Bytes frame = clientFrame(0x82, numbered(id, index));
                        stream.insert(stream.end(), frame.begin(), frame.end());
                        if (id % 3 == 0) {
                            sendAll(handles[id]->sockets.client, stream);
                            stream.clear();
                        }
                    }
                    sendAll(handles[id]->sockets.client, stream);
                }
                for (std::size_t id = client; id < Connections; id += Clients) {
                    for (std::size_t index = begin; index < end; ++index) {
                        const auto frames = parseServerFrames(receiveFrame(handles[id]->sockets.client));
                        if (frames.size() != 1 || frames[0].opcode != 2 || frames[0].payload != numbered(id, index)) {
                            ++wrong;
                        }
                    }
                }
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_EQ(wrong, 0U);

    // A worker counts a message after its answer has left.
    pool->stopThreads(true);
    EXPECT_EQ(watch.messages.count(), Connections * PerConnection);
    pool->closeAll();
    EXPECT_EQ(watch.destroyed.count(), Connections);
    std::size_t extraBytes = 0;
    for (const auto& handle : handles) {
        EXPECT_EQ(handle->closes.count(), 1U);
        extraBytes += receiveExactly(handle->sockets.client, 1).size();
    }
    EXPECT_EQ(extraBytes, 0U) << "answers beyond one for each message";
}

TEST_F(WebSocketPoolLoad, ConnectionsThatEndAtRandomAreEachClosedOnceAndDisturbNoOther) {
    constexpr std::size_t Mortal = 300;
    constexpr unsigned Seed = 20260611;
    std::mt19937 random(Seed);
    pool->startThreads(3);
    UpgradeHandle& survivor = addSocket();
    for (std::size_t id = 0; id < Mortal; ++id) {
        addSocket();
    }
    const std::size_t all = handles.size();
    std::vector<std::size_t> order(Mortal);
    for (std::size_t i = 0; i < Mortal; ++i) {
        order[i] = i + 1;
    }
    std::shuffle(order.begin(), order.end(), random);

    for (const std::size_t id : order) {
        SocketPair& sockets = handles[id]->sockets;
        Bytes stream;
        for (std::size_t index = random() % 6; index > 0; --index) {
            const Bytes frame = clientFrame(0x82, numbered(id, index));
            stream.insert(stream.end(), frame.begin(), frame.end());
        }
        // May end inside a frame, in a header too.
        stream.resize(stream.empty() ? 0 : random() % (stream.size() + 1));
        sendAll(sockets.client, stream);
        switch (random() % 4) {
        case 0:
            sockets.resetClient();
            break;
        case 1:
            sockets.closeClient();
            break;
        case 2:
            shutdownSending(sockets.client);
            break;
        default:
            sendAll(sockets.client, clientFrame(0x8B, {}));
            shutdownSending(sockets.client);
            break;
        }
        if (id % 50 == 0) {
            expectEcho(survivor, std::to_string(id));
        }
    }
    ASSERT_TRUE(watch.destroyed.waitFor(Mortal)) << "seed " << Seed;
    expectEcho(survivor, "the end");
    EXPECT_EQ(watch.destroyed.count(), Mortal);
    for (std::size_t id = 1; id < all; ++id) {
        EXPECT_EQ(handles[id]->closes.count(), 1U);
    }
    EXPECT_EQ(survivor.closes.count(), 0U);
}

TEST_F(WebSocketPoolLoad, StoppingAtAnyMomentLeavesEveryConnectionToBeClosedOnce) {
    constexpr std::size_t Rounds = 40;
    constexpr std::size_t Connections = 12;
    constexpr std::size_t PerConnection = 8;
    for (std::size_t round = 0; round < Rounds; ++round) {
        handles.clear();
        Watch roundWatch;
        pool = std::make_unique<ql::http::WebSocketThread>();
        pool->startThreads(1 + static_cast<unsigned int>(round % 4));
        for (std::size_t id = 0; id < Connections; ++id) {
            std::unique_ptr<WebSocket> socket = std::make_unique<PoolSocket>(newHandle(), roundWatch);
            pool->addWebSocket(socket);
            Bytes stream;
            for (std::size_t index = 0; index < PerConnection; ++index) {
                const Bytes frame = clientFrame(0x82, numbered(id, index));
                stream.insert(stream.end(), frame.begin(), frame.end());
            }
            ASSERT_TRUE(sendAll(handles.back()->sockets.client, stream));
        }
        ASSERT_TRUE(roundWatch.messages.waitFor(round * Connections * PerConnection / Rounds));

        pool->stopThreads(round % 2 == 0);
        pool->stopThreads(true);
        const std::size_t messages = roundWatch.messages.count();
        pool->closeAll();
        EXPECT_EQ(roundWatch.messages.count(), messages);
        ASSERT_EQ(roundWatch.destroyed.count(), Connections) << "round " << round;
        for (const auto& handle : handles) {
            ASSERT_EQ(handle->closes.count(), 1U) << "round " << round;
        }
        pool.reset();
    }
}

TEST_F(WebSocketPoolLoad, BurstsInOneSegmentAreAnsweredWithoutMoreFromThePeer) {
    pool->startThreads(2);
    UpgradeHandle& handle = addSocket();
    for (std::size_t count = 1; count <= 100; ++count) {
        Bytes burst;
        for (std::size_t i = 0; i < count; ++i) {
            const Bytes frame = clientFrame(0x81, toBytes(std::to_string(i)));
            burst.insert(burst.end(), frame.begin(), frame.end());
        }
        const Bytes tail = clientFrame(0x81, toBytes("tail"));
        const auto cut = tail.begin() + static_cast<std::ptrdiff_t>(count % tail.size());
        ASSERT_TRUE(sendAll(handle.sockets.client, concatenate({burst, Bytes(tail.begin(), cut)})));
        for (std::size_t i = 0; i < count; ++i) {
            const auto frames = parseServerFrames(receiveFrame(handle.sockets.client));
            ASSERT_EQ(frames.size(), 1U);
            ASSERT_EQ(toText(frames[0].payload), std::to_string(i)) << "burst of " << count;
        }
        ASSERT_TRUE(sendAll(handle.sockets.client, Bytes(cut, tail.end())));
        ASSERT_EQ(receiveFrame(handle.sockets.client), concatenate({{0x81, 4}, toBytes("tail")}));
    }
}

TEST_F(WebSocketPoolLoad, BroadcastsOfOtherThreadsArriveOnceAndInOrder) {
    constexpr std::size_t Connections = 20;
    constexpr std::size_t Writers = 3;
    constexpr std::size_t PerWriter = 60;
    pool->startThreads(3);
    std::vector<WebSocket*> sockets;
    for (std::size_t id = 0; id < Connections; ++id) {
        std::unique_ptr<WebSocket> socket = makeSocket();
        sockets.push_back(socket.get());
        pool->addWebSocket(socket);
    }
    std::vector<std::jthread> writers;
    for (std::size_t writer = 0; writer < Writers; ++writer) {
        writers.emplace_back([&, writer] {
            for (std::size_t index = 0; index < PerWriter; ++index) {
                const Bytes payload = numbered(writer, index);
                for (WebSocket* socket : sockets) {
                    socket->writeMessage(payload.data(), payload.size(), true);
                }
            }
        });
    }
    for (const auto& handle : handles) {
        std::vector<std::size_t> next(Writers, 0);
        for (std::size_t i = 0; i < Writers * PerWriter; ++i) {
            const auto frames = parseServerFrames(receiveFrame(handle->sockets.client));
            ASSERT_EQ(frames.size(), 1U);
            const std::size_t writer = frames[0].payload.at(0) - std::size_t{'0'};
            ASSERT_LT(writer, Writers);
            ASSERT_EQ(frames[0].payload, numbered(writer, next[writer]));
            ++next[writer];
        }
    }
}
