#pragma once
// The queue of a node's messages, with a short cut past it.
//
// A node acts on its messages one after the other, and in the order in which each thread put them in. The dispatcher's
// thread takes them off the queue for that; waking it costs more than most messages. So a thread that has a message
// while the node is idle acts on it at once, by post(): a call is sent by its caller, an answer is handed over by the
// receiver.

#include <atomic>
#include <mutex>
#include <sys/types.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "ondra/Channel.h"
#include "trovi/Messages.h"

namespace trovi {

/// Acts on messages: the dispatcher.
class MessageHandler {
public:
    virtual void handle(messages::Message&& message) = 0;

protected:
    ~MessageHandler() = default;
};

/// Threads: thread-safe. An exception out of acting on a message ends the process with its text, on whichever thread.
/// The turn is what makes actions follow each other. It is held while one message, and what that puts in, is acted on.
/// It is outer to the store's mutex and the Python interpreter's lock; nobody waits for it but the dispatcher's thread
/// and detach(), so whoever holds another lock may call post() and enqueue().
class MessageChannel : public ondra::Channel<messages::Message> {
public:
    /// Puts the message in the queue. From inside a turn, by its holder, while nothing is queued: has it acted on right
    /// after the present one.
    void enqueue(messages::Message message);

    /// Acts on the message on this thread if the node is idle and nothing waits, else as enqueue().
    void post(messages::Message message);

    /// False in a process that was forked off: the threads that would act on a message don't exist there, and the turn
    /// may have been taken when it was forked.
    bool isOfThisProcess() const;

    // ---- for the dispatcher

    /// From now on post() may act, by `handler`.
    void attach(MessageHandler& handler);
    /// From now on post() only enqueues. Waits for a turn that is under way; not to be called from inside one.
    void detach();
    /// Acts on a message that was taken off the queue, once the turn is free.
    void act(messages::Message&& message);

    /// True inside a turn, for the thread that holds it: a node must not be stopped there.
    bool isMyTurn() const;

private:
    class Turn;
    void handleAll(messages::Message&& message) noexcept;

    const pid_t process_ = ::getpid();
    std::mutex turn_;
    std::atomic<std::thread::id> holder_; // of the turn; a thread only ever asks whether it is the one
    // under the turn:
    MessageHandler* handler_ = nullptr;
    std::vector<messages::Message> outbox_;
    // Messages in the queue or taken off it, but not yet acted on. While there are any, post() doesn't overtake them.
    std::atomic<std::size_t> waiting_ = 0;
};

} // namespace trovi
