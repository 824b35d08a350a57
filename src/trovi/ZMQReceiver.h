#pragma once
// A node's socket for receiving, and the thread that reads it.

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include <zmq.hpp>

#include "trovi/SocketProperties.h"
#include "trovi/ZMQMessageParserInterface.h"

namespace trovi {

/// Threads: the constructor starts a thread that alone uses the socket until stop(). An exception on it (a message
/// that can't be decoded, a failure of the library) ends the process with its text.
class ZMQReceiver {
public:
    /// @param pollInterval  longest time until stop() is noticed; a message is taken at once
    /// @param subscription  prefix of the topics that are wanted; used by a connecting receiver alone
    /// @throws as openSocket
    ZMQReceiver(zmq::context_t& context, ZMQMessageParserInterface& parser, const std::string& endpoint,
                std::chrono::milliseconds pollInterval, SocketProperties properties, const std::string& subscription);
    virtual ~ZMQReceiver() { stop(); }
    ZMQReceiver(const ZMQReceiver&) = delete;
    ZMQReceiver& operator=(const ZMQReceiver&) = delete;

    /// Ends and joins the thread, within one poll interval, and closes the socket. Does nothing a second time.
    void stop();
    /// As ZMQSender::endpoint.
    const std::string& endpoint() const { return endpoint_; }

private:
    void poll(std::chrono::milliseconds timeout);
    void receiveOne();

    ZMQMessageParserInterface& parser;
    zmq::socket_t socket;
    std::string endpoint_;
    std::atomic<bool> running = true;
    std::thread thread;
};

} // namespace trovi
