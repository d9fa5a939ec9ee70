#include "RedisBus.h"

#include <hiredis/hiredis.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <exception>
#include <fcntl.h>
#include <initializer_list>
#include <iostream>
#include <memory>
#include <optional>
#include <poll.h>
#include <random>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <system_error>
#include <utility>

namespace {

using std::chrono::milliseconds;

constexpr milliseconds FirstPause{100};
constexpr milliseconds LongestPause{5000};
/// After so long without a sign of life Redis is asked for one.
constexpr milliseconds Silence{5000};
/// What is handed to a connection at a time.
constexpr std::size_t BatchBytes = 65536;

void tell(const std::string& line) {
    std::clog << "redis: " + line + "\n";
}

/// A command as Redis takes it, whatever bytes its words have.
std::string commandOf(std::initializer_list<std::string_view> words) {
    std::string command = "*" + std::to_string(words.size()) + "\r\n";
    for (const std::string_view word : words) {
        command += "$" + std::to_string(word.size()) + "\r\n";
        command += word;
        command += "\r\n";
    }
    return command;
}

/// Of "ADDRESS:PORT"; none where there is none.
std::optional<int> portOf(std::string_view place) {
    const std::size_t colon = place.rfind(':');
    if (colon == std::string_view::npos || colon == 0) {
        return std::nullopt;
    }
    const char* const end = place.data() + place.size();
    int port = 0;
    const auto [last, error] = std::from_chars(place.data() + colon + 1, end, port);
    return error == std::errc() && last == end && port > 0 && port < 65536 ? std::optional(port) : std::nullopt;
}

timeval timevalOf(milliseconds time) {
    return {time.count() / 1000, time.count() % 1000 * 1000};
}

struct FreeReply {
    void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using Reply = std::unique_ptr<redisReply, FreeReply>;

std::string_view textOf(const redisReply& reply) {
    return {reply.str, reply.len};
}

/// Keeps signals from the threads that are started while it lives. Writing to a connection that has broken would end
/// the process by one, and the others are the application's.
class WithoutSignals {
public:
    WithoutSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &former_);
    }
    ~WithoutSignals() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
    WithoutSignals(const WithoutSignals&) = delete;
    WithoutSignals& operator=(const WithoutSignals&) = delete;

private:
    sigset_t former_;
};

/// Pauses that double, each between a half and the whole of it: not all processes come back at once.
class Backoff {
public:
    void reset() { pause_ = FirstPause; }
    milliseconds next() {
        const milliseconds::rep whole = pause_.count();
        pause_ = std::min(2 * pause_, LongestPause);
        return milliseconds(std::uniform_int_distribution<milliseconds::rep>(whole / 2, whole)(random_));
    }

private:
    milliseconds pause_ = FirstPause;
    std::minstd_rand random_{std::random_device()()};
};

} // namespace

/// A connection to Redis. Whatever fails throws std::runtime_error, and then it is of no more use.
class RedisBus::Connection {
public:
    explicit Connection(const RedisOptions& options) : context_(open(options)) {
        if (!context_) {
            throw std::runtime_error("no memory");
        }
        check(context_->err == 0 ? REDIS_OK : REDIS_ERR);
        fcntl(context_->fd, F_SETFD, FD_CLOEXEC);
        check(redisSetTimeout(context_.get(), timevalOf(options.patience)));
        if (!options.password.empty()) {
            send(commandOf({"AUTH", options.password}));
            answer();
        }
    }

    int socket() const { return context_->fd; }

    /// Goes out with the next flush() or answer().
    void send(const std::string& command) const {
        check(redisAppendFormattedCommand(context_.get(), command.data(), command.size()));
    }
    void flush() const {
        for (int isDone = 0; isDone == 0;) {
            check(redisBufferWrite(context_.get(), &isDone));
        }
    }
    /// Waits for the answer to the first command that has none.
    Reply answer() const {
        void* reply = nullptr;
        check(redisGetReply(context_.get(), &reply));
        return checked(reply);
    }

    /// Reads what comes. @return false when nothing does for so long.
    bool read(milliseconds time) const {
        pollfd wanted{context_->fd, POLLIN, 0};
        const int count = ::poll(&wanted, 1, static_cast<int>(time.count()));
        if (count == 0 || (count < 0 && errno == EINTR)) {
            return count != 0;
        }
        check(redisBufferRead(context_.get()));
        return true;
    }
    /// The next of what was read, or null.
    Reply next() const {
        void* reply = nullptr;
        check(redisGetReplyFromReader(context_.get(), &reply));
        return checked(reply);
    }

private:
    struct Free {
        void operator()(redisContext* context) const { redisFree(context); }
    };

    static redisContext* open(const RedisOptions& options) {
        const timeval patience = timevalOf(options.patience);
        const std::string& place = options.place;
        return place.starts_with('/')
                   ? redisConnectUnixWithTimeout(place.c_str(), patience)
                   : redisConnectWithTimeout(place.substr(0, place.rfind(':')).c_str(), *portOf(place), patience);
    }

    void check(int result) const {
        if (result != REDIS_OK) {
            throw std::runtime_error(context_->errstr);
        }
    }

    static Reply checked(void* reply) {
        Reply own(static_cast<redisReply*>(reply));
        if (own && own->type == REDIS_REPLY_ERROR) {
            throw std::runtime_error(std::string(textOf(*own)));
        }
        return own;
    }

    std::unique_ptr<redisContext, Free> context_;
};

RedisBus::RedisBus(RedisOptions options) : options_(std::move(options)) {
    if (!(options_.place.starts_with('/') || portOf(options_.place)) || options_.channel.empty()) {
        throw std::invalid_argument("Redis takes a place, ADDRESS:PORT or /SOCKET, and a channel");
    }
}

RedisBus::~RedisBus() {
    stop();
}

void RedisBus::start(Receiver receiver) {
    receiver_ = std::move(receiver);
    {
        const WithoutSignals signals;
        publisher_ = std::thread([this] { run(publishing_, &RedisBus::publishAll); });
        listener_ = std::thread([this] { run(listening_, &RedisBus::listen); });
    }
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, options_.patience, [this] { return publishing_.isUp && listening_.isUp; });
}

void RedisBus::stop() noexcept {
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = true;
        if (listening_.isUp) {
            ::shutdown(listening_.socket, SHUT_RDWR);
        }
        changed_.notify_all();
    }
    for (std::thread* thread : {&listener_, &publisher_}) {
        if (thread->joinable()) {
            thread->join();
        }
    }
}

bool RedisBus::publish(std::string_view frame) noexcept {
    try {
        std::string command = commandOf({"PUBLISH", options_.channel, frame});
        const std::lock_guard lock(mutex_);
        if (!publishing_.isUp || isStopping_ || queuedBytes_ + command.size() > options_.mostBytes) {
            ++refused_;
            return false;
        }
        queuedBytes_ += command.size();
        queue_.push_back(std::move(command));
        changed_.notify_all();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

/// Makes one of the connections and serves it until the bus stops, again and again.
void RedisBus::run(Way& way, void (RedisBus::*serve)(Connection&)) {
    Backoff backoff;
    while (!isStopping()) {
        try {
            Connection connection(options_);
            (this->*serve)(connection);
            setDown(way, "the process stops");
        } catch (const std::exception& error) {
            if (setDown(way, error.what())) {
                backoff.reset();
            }
        }
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, backoff.next(), [this] { return isStopping_; });
    }
}

void RedisBus::publishAll(Connection& connection) {
    connection.send(commandOf({"PING"}));
    connection.answer();
    setUp(publishing_, connection);
    for (;;) {
        std::deque<std::string> batch;
        {
            std::unique_lock lock(mutex_);
            changed_.wait_for(lock, Silence, [this] { return isStopping_ || !queue_.empty(); });
            for (std::size_t bytes = 0; bytes < BatchBytes && !queue_.empty(); queue_.pop_front()) {
                bytes += queue_.front().size();
                batch.push_back(std::move(queue_.front()));
            }
            unanswered_ = batch.size();
            for (const std::string& command : batch) {
                queuedBytes_ -= command.size();
            }
            if (batch.empty() && isStopping_) {
                return;
            }
        }
        if (batch.empty()) {
            batch.push_back(commandOf({"PING"}));
        }
        for (const std::string& command : batch) {
            connection.send(command);
        }
        for (std::size_t i = 0; i < batch.size(); ++i) {
            connection.answer();
        }
        const std::lock_guard lock(mutex_);
        unanswered_ = 0;
    }
}

void RedisBus::listen(Connection& connection) {
    connection.send(commandOf({"SUBSCRIBE", options_.channel}));
    connection.answer();
    setUp(listening_, connection);
    bool isAsked = false;
    while (!isStopping()) {
        if (connection.read(Silence)) {
            isAsked = false;
        } else if (isAsked) {
            throw std::runtime_error("no sign of life");
        } else {
            isAsked = true;
            connection.send(commandOf({"PING"}));
            connection.flush();
        }
        while (const Reply reply = connection.next()) {
            // "message", the channel, the frame; or the answer to a PING.
            if (reply->type == REDIS_REPLY_ARRAY && reply->elements == 3 && textOf(*reply->element[0]) == "message") {
                receiver_(textOf(*reply->element[2]));
            }
        }
    }
}

void RedisBus::setUp(Way& way, const Connection& connection) {
    const std::lock_guard lock(mutex_);
    way.isUp = true;
    way.isLossTold = false;
    way.socket = connection.socket();
    std::string line = std::string(way.name) + " at " + options_.place;
    if (&way == &publishing_ && refused_ > 0) {
        line += "; " + std::to_string(std::exchange(refused_, 0)) + " messages were refused before";
    }
    tell(line);
    changed_.notify_all();
}

bool RedisBus::setDown(Way& way, const std::string& reason) {
    const std::lock_guard lock(mutex_);
    std::string line = "not " + std::string(way.name) + ": " + reason;
    bool isNews = !std::exchange(way.isLossTold, true) && !isStopping_;
    if (&way == &publishing_) {
        if (!queue_.empty() || unanswered_ > 0) {
            isNews = true;
            line += "; " + std::to_string(queue_.size()) + " messages were not sent, " + std::to_string(unanswered_) +
                    " may have arrived";
        }
        queue_.clear();
        queuedBytes_ = 0;
        unanswered_ = 0;
    }
    if (isNews) {
        tell(line);
    }
    return std::exchange(way.isUp, false);
}

bool RedisBus::isStopping() {
    const std::lock_guard lock(mutex_);
    return isStopping_;
}
