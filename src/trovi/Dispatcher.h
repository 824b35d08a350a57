#pragma once
// The thread of a node that moves messages.

#include <cstdint>
#include <future>
#include <string>
#include <unordered_map>
#include <vector>

#include "ondra/Consumer.h"
#include "trovi/ElementDescription.h"
#include "trovi/MessageChannel.h"
#include "trovi/MessageForwarderInterface.h"
#include "trovi/MessageHandler.h"
#include "trovi/Messages.h"
#include "trovi/Store.h"
#include "util/Mutex.h"

namespace trovi {

/// Asks store `storeId` for its content; the asking node becomes its observer. The time-out is the caller's.
std::future<std::vector<ElementDescription>> getStoreContent(MessageChannel& channel, std::uint64_t storeId);

/// Moves the messages of a node: forwards them, runs them on the local store, or completes a pending call.
///
/// Threads: the constructor starts a thread that alone reads the channel. It handles messages in the channel's turn,
/// and so does a thread that posts one while the node is idle. So the forwarder, the store and the callbacks are used
/// by one thread at a time, the turn's holder. An exception of a called method, or of a truncated message, ends the
/// process with its text when it leaves the dispatcher's or the receiver's thread. `mutex` is never held during a call.
class Dispatcher : private ondra::Consumer<messages::Message>, private MessageHandler {
public:
    /// @throws std::runtime_error "Dispatcher cannot be initialized with store == nullptr or storeId != dispatcherId!"
    Dispatcher(std::uint64_t dispatcherId, MessageChannel& channel, MessageForwarderInterface* forwarder, Store* store);
    ~Dispatcher() override { stop(); }

    std::uint64_t id() const { return dispatcherId; }

    /// Sets what runs, in the channel's turn, for messages with `command` that answer no pending call.
    /// Threads: thread-safe. A message that is being handled may still see the handler before.
    void setOnResponseMessageCommandCallback(StoreCommand command, messages::Callback function) VORNA_EXCLUDES(mutex);

    /// Ends and joins the thread, drops what is left in the channel and releases the pending calls: their futures then
    /// hold a broken promise. Does nothing a second time. Not to be called from inside a turn.
    void stop() VORNA_EXCLUDES(mutex);

private:
    void enqueuedItem(messages::Message&& message) override { queue.act(std::move(message)); }
    void handle(messages::Message&& message) override;
    template <class M>
    void actOn(M& message); // moves from it
    template <class M>
    void forward(M& message);
    template <class M>
    void registerCall(M& message) VORNA_EXCLUDES(mutex);
    void report(messages::Call&& call);
    void response(messages::Response&& message) VORNA_EXCLUDES(mutex);

    MessageChannel& queue;
    std::uint64_t nextUuid = 0; // used in the turn alone
    const std::uint64_t dispatcherId;
    MessageForwarderInterface* forwarder;
    Store* store;
    util::Mutex mutex;
    // Pending calls by the text of their uuid, and notification handlers by the name of their command. A call that is
    // never answered stays here until the node ends.
    std::unordered_map<std::string, messages::Callback> callbacks VORNA_GUARDED_BY(mutex);
};

} // namespace trovi
