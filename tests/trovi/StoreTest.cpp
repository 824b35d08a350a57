#include "trovi/Store.h"

#include <gmock/gmock.h>

#include "Network.h"

namespace sample {

/// Records its end, and erases another object of the store on the way, as a device controller does.
struct Mortal {
    Mortal(std::vector<int>& ends, int id, std::function<void()> last = {}) : ends(ends), id(id), last(std::move(last))
    {}
    ~Mortal()
    {
        ends.push_back(id);
        if (last)
            last();
    }
    std::vector<int>& ends;
    int id;
    std::function<void()> last;
};

} // namespace sample

namespace trovi {

template <>
constexpr auto registerMembers<sample::Mortal>()
{
    return members();
}
} // namespace trovi

namespace {

using namespace trovi;
using sample::Leaf;
using testing::ElementsAre;
using testing::UnorderedElementsAre;
using Notification = std::tuple<std::uint64_t, ElementDescription>; // for this observer

struct StoreTest : testing::Test {
    std::vector<Notification> notifications()
    {
        std::vector<Notification> all;
        messages::Message message;
        while (channel.try_dequeue(message)) {
            auto& response = std::get<messages::Response>(message);
            EXPECT_EQ(response.command, StoreCommand::contentUpdate);
            ByteStream stream(std::move(response.buffer));
            EXPECT_EQ(deserializeElement<std::string>(stream), "");
            const auto elements = deserializeElement<std::vector<ElementDescription>>(stream);
            EXPECT_EQ(elements.size(), 1U);
            all.emplace_back(response.destination, elements[0]);
        }
        return all;
    }
    StoreRef insertLeaf(const std::string& name) { return store.insert(name, std::make_unique<Leaf>()); }
    StoreRef insertMortal(int id, std::function<void()> last = {})
    {
        return store.insert(std::to_string(id), std::make_unique<sample::Mortal>(ends, id, std::move(last)));
    }

    std::vector<int> ends;
    MessageChannel channel;
    Store store{channel, 7};
};

TEST_F(StoreTest, IdsCountOnReportsAreInTheirOrderAndANameIsGivenOnce)
{
    EXPECT_THAT(store.report(), testing::IsEmpty());
    EXPECT_EQ(insertLeaf("a"), (StoreRef{7, 0}));
    EXPECT_EQ(errorOf([&] { insertLeaf("a"); }), "Name: a is already used by other element in the store!");
    EXPECT_EQ(insertLeaf("b"), (StoreRef{7, 1})); // the refused one took no id
    EXPECT_TRUE(store.erase({7, 0}));
    EXPECT_FALSE(store.erase({7, 0}));
    EXPECT_FALSE(store.erase({8, 1}));
    EXPECT_EQ(insertLeaf("a"), (StoreRef{7, 2}));
    EXPECT_THAT(store.report(), ElementsAre(ElementDescription{{7, 1}, "sample::Leaf", "b", 2},
                                            ElementDescription{{7, 2}, "sample::Leaf", "a", 2}));
    EXPECT_EQ(store.size(), 2U);
}

TEST_F(StoreTest, EveryObserverIsNotifiedOnce)
{
    insertLeaf("unseen");
    EXPECT_THAT(notifications(), testing::IsEmpty());
    for (const std::uint64_t observer : {20, 30, 20})
        store.addObserverNode(observer);
    EXPECT_THAT(store.getObserverNodes(), UnorderedElementsAre(20, 30));
    insertLeaf("a");
    const ElementDescription added{{7, 1}, "sample::Leaf", "a", ElementDescription::added};
    EXPECT_THAT(notifications(), UnorderedElementsAre(Notification(20, added), Notification(30, added)));
    store.removeObserverNode(20);
    store.erase({7, 1});
    EXPECT_NE(store.extract({7, 0}), nullptr);
    EXPECT_THAT(notifications(),
                ElementsAre(Notification(30, {{7, 1}, "sample::Leaf", "a", ElementDescription::removed}),
                            Notification(30, {{7, 0}, "sample::Leaf", "unseen", ElementDescription::removed})));
}

TEST_F(StoreTest, ClosingDestroysTheObjectsInTheOrderOfTheirIdsAndBorrowedOnesLiveOn)
{
    sample::Mortal borrowed(ends, 9);
    insertMortal(0, [this] { store.erase({7, 4}); });
    for (int id = 1; id < 6; ++id)
        insertMortal(id);
    store.insertBorrowed("borrowed", borrowed);
    store.erase({7, 2});
    EXPECT_EQ(store.extract({8, 3}), nullptr);
    std::unique_ptr<Storable> holder = store.extract({7, 3});
    EXPECT_EQ(store.extract({7, 3}), nullptr);
    EXPECT_EQ(holder->getHeldName() + holder->getHeldTypeName(), "3sample::Mortal");
    store.close();
    EXPECT_THAT(ends, ElementsAre(2, 0, 4, 1, 5));
    holder.reset();
    EXPECT_EQ(ends.back(), 3);
    EXPECT_EQ(errorOf([&] { insertMortal(8); }), "The store is closed: its node was stopped.");
    EXPECT_EQ(ends.back(), 8);
}

TEST_F(StoreTest, MessagesForNobodyAreDroppedAndAFailureLeavesTheStoreUsable)
{
    const StoreRef ref = insertLeaf("a");
    store.receiveMsg({0, {7, 5}, StoreCommand::call, 0}, {});
    for (const StoreCommand command : {StoreCommand::get, StoreCommand::set, StoreCommand::connect,
                                       StoreCommand::directSet, static_cast<StoreCommand>(99)})
        store.receiveMsg({0, ref, command, 0}, {});
    store.receiveMsg({0, ref, StoreCommand::call, 3}, {}); // one past the last function
    EXPECT_EQ(channel.size_approx(), 0U);
    EXPECT_EQ(errorOf([&] {
                  store.receiveMsg({0, ref, StoreCommand::call, 1}, Bytes(3));
              }),
              "Failed to read 4 bytes from input stream! Read 3");
    EXPECT_TRUE(std::async(std::launch::async, [&] { return store.erase(ref); }).get()); // the mutex is free
}

} // namespace
