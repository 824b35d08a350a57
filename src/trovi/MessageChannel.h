#pragma once
// The queue of a node's messages, with a short cut past it.
//
// A node handles its messages one after the other, and in the order in which each thread put them in. The dispatcher's
// thread takes them off the queue for that; waking it costs more than most messages. So a thread that has a message
// while the node is idle handles it at once, by post(): a call is sent by its caller, an answer is handed over by the
// receiver.

#include <atomic>
#include <sys/types.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "ondra/Channel.h"
#include "trovi/MessageHandler.h"
#include "trovi/Messages.h"
#include "util/Mutex.h"

namespace trovi {

/// Threads: thread-safe. An exception out of handling a message ends the process with its text, on whichever thread.
/// The turn keeps messages from overlapping. It is held while one message, and what that enqueues, is handled. It is
/// outer to the store's mutex and the Python interpreter's lock. Only the dispatcher's thread and detach() wait for it,
/// so a thread that holds another lock may call post() and enqueue().
class MessageChannel : public ondra::Channel<messages::Message> {
public:
    /// Puts the message in the queue. Inside a turn, while nothing is queued, it is handled right after the present
    /// one. After detach() the message is dropped: a call's promise is broken then.
    void enqueue(messages::Message message);

    /// Handles the message on this thread if the node is idle and nothing is queued, else as enqueue().
    void post(messages::Message message);

    /// False in a process that was forked off: the threads that would handle a message don't exist there, and the turn
    /// may have been taken when it was forked.
    bool isOfThisProcess() const;

    // ---- for the dispatcher

    /// From now on post() may handle messages, by `newHandler`.
    void attach(MessageHandler& newHandler) VORNA_EXCLUDES(turn);
    /// For good: from now on nothing is handled or queued. Waits for a turn that is under way; not to be called from
    /// inside one.
    void detach() VORNA_EXCLUDES(turn);
    /// Handles a message that the caller has dequeued, once the turn is free.
    void act(messages::Message&& message) VORNA_EXCLUDES(turn);

    /// True inside a turn, for the thread that holds it: a node must not be stopped there.
    bool isMyTurn() const;

private:
    class Turn;
    void handleAll(messages::Message&& message) noexcept VORNA_REQUIRES(turn);
    void assertMyTurn() VORNA_ASSERT_HELD(turn) {} // for the analysis, where isMyTurn() said so

    const pid_t process = ::getpid();
    util::Mutex turn;
    std::atomic<std::thread::id> holder; // of the turn; a thread only ever asks whether it is the one
    MessageHandler* handler VORNA_GUARDED_BY(turn) = nullptr;
    std::vector<messages::Message> outbox VORNA_GUARDED_BY(turn);
    // Messages that are queued, or dequeued and not yet handled. While there are any, no other is handled before them.
    std::atomic<std::size_t> waiting = 0;
    std::atomic<bool> isDetached = false;
};

} // namespace trovi
