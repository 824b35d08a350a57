#include "trovi/Store.h"

#include <gmock/gmock.h>

#include "Network.h"

namespace sample {

/// Tells of its end.
struct Mortal {
    Mortal(std::vector<int>& ends, int id) : ends(ends), id(id) {}
    ~Mortal() { ends.push_back(id); }
    std::vector<int>& ends;
    int id;
};

/// Changes the store that it lives in while a message runs on it.
struct Gardener {
    explicit Gardener(trovi::Store& store) : store(store) {}
    void work(std::uint64_t away)
    {
        store.insert("planted", std::make_unique<Leaf>());
        store.erase({store.id(), away});
    }
    trovi::Store& store;
};

} // namespace sample

namespace trovi {

template <>
constexpr auto registerMembers<sample::Mortal>()
{
    return members();
}
template <>
constexpr auto registerMemberFunctions<sample::Gardener>()
{
    return functions(function("work", &sample::Gardener::work));
}

} // namespace trovi

namespace {

using namespace trovi;
using sample::Leaf;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

struct StoreTest : testing::Test {
    /// What was sent to observers: (observer, change, name, objId).
    std::vector<std::tuple<std::uint64_t, std::uint32_t, std::string, std::uint64_t>> notifications()
    {
        std::vector<std::tuple<std::uint64_t, std::uint32_t, std::string, std::uint64_t>> all;
        messages::Message message;
        while (channel.try_dequeue(message)) {
            auto& response = std::get<messages::Response>(message);
            EXPECT_EQ(response.command, StoreCommand::contentUpdate);
            ByteStream stream(std::move(response.buffer));
            EXPECT_EQ(deserializeElement<std::string>(stream), "");
            const auto elements = deserializeElement<std::vector<ElementDescription>>(stream);
            EXPECT_EQ(elements.size(), 1U);
            EXPECT_EQ(elements[0].type, "sample::Leaf");
            EXPECT_EQ(elements[0].ref.storeId, 7U);
            all.emplace_back(response.destination, elements[0].change, elements[0].name, elements[0].ref.objId);
        }
        return all;
    }
    StoreRef insertLeaf(const std::string& name) { return store.insert(name, std::make_unique<Leaf>()); }

    MessageChannel channel;
    Store store{channel, 7};
};

TEST_F(StoreTest, IdsCountOnAndReportsAreInTheirOrder)
{
    EXPECT_THAT(store.report(), testing::IsEmpty());
    EXPECT_EQ(insertLeaf("a"), (StoreRef{7, 0}));
    EXPECT_EQ(insertLeaf("b"), (StoreRef{7, 1}));
    EXPECT_TRUE(store.erase({7, 0}));
    EXPECT_FALSE(store.erase({7, 0}));
    EXPECT_FALSE(store.erase({8, 1}));
    EXPECT_EQ(insertLeaf("a"), (StoreRef{7, 2}));
    EXPECT_THAT(store.report(), ElementsAre(ElementDescription{{7, 1}, "sample::Leaf", "b", 2},
                                            ElementDescription{{7, 2}, "sample::Leaf", "a", 2}));
    EXPECT_EQ(store.size(), 2U);
}

TEST_F(StoreTest, ANameIsGivenOnce)
{
    insertLeaf("a");
    EXPECT_EQ(test::errorOf([&] { insertLeaf("a"); }), "Name: a is already used by other element in the store!");
    EXPECT_EQ(store.size(), 1U);
    EXPECT_EQ(insertLeaf("b"), (StoreRef{7, 1})); // the refused one took no id
}

TEST_F(StoreTest, EveryObserverIsToldOnce)
{
    insertLeaf("unseen");
    EXPECT_THAT(notifications(), testing::IsEmpty());
    store.addObserverNode(20);
    store.addObserverNode(30);
    store.addObserverNode(20);
    EXPECT_THAT(store.getObserverNodes(), UnorderedElementsAre(20, 30));
    insertLeaf("a");
    EXPECT_THAT(notifications(), UnorderedElementsAre(std::tuple(20, 0, "a", 1), std::tuple(30, 0, "a", 1)));
    store.removeObserverNode(20);
    store.erase({7, 1});
    EXPECT_THAT(notifications(), ElementsAre(std::tuple(30, 1, "a", 1)));
    EXPECT_NE(store.extract({7, 0}), nullptr);
    EXPECT_THAT(notifications(), ElementsAre(std::tuple(30, 1, "unseen", 0)));
}

TEST_F(StoreTest, ExtractHandsTheObjectOut)
{
    std::vector<int> ends;
    const StoreRef ref = store.insert("m", std::make_unique<sample::Mortal>(ends, 1));
    EXPECT_EQ(store.extract({8, ref.objId}), nullptr);
    std::unique_ptr<Storable> holder = store.extract(ref);
    EXPECT_EQ(store.extract(ref), nullptr);
    EXPECT_EQ(holder->getHeldName(), "m");
    EXPECT_EQ(holder->getHeldTypeName(), "sample::Mortal");
    EXPECT_THAT(ends, testing::IsEmpty());
    holder.reset();
    EXPECT_THAT(ends, ElementsAre(1));
}

TEST(Store, ObjectsEndInTheOrderOfTheirIdsAndBorrowedOnesLiveOn)
{
    std::vector<int> ends;
    sample::Mortal borrowed(ends, 9);
    MessageChannel channel;
    {
        Store store(channel, 1);
        for (int i = 0; i < 5; ++i)
            store.insert(std::to_string(i), std::make_unique<sample::Mortal>(ends, i));
        store.insertBorrowed("borrowed", borrowed);
        store.erase({1, 2});
    }
    EXPECT_THAT(ends, ElementsAre(2, 0, 1, 3, 4));
}

TEST_F(StoreTest, AMethodMayChangeTheStoreItRunsIn)
{
    insertLeaf("weed");
    const StoreRef gardener = store.insert("gardener", std::make_unique<sample::Gardener>(store));
    store.receiveMsg({0, gardener, StoreCommand::call, 0},
                     serializeToBuffer(std::uint64_t{0}, std::uint64_t{2}, uuid().str()));
    std::vector<std::string> names;
    for (const auto& element : store.report())
        names.push_back(element.name);
    EXPECT_THAT(names, ElementsAre("gardener", "planted"));
}

TEST_F(StoreTest, MessagesForNobodyAreDropped)
{
    store.receiveMsg({0, {7, 5}, StoreCommand::call, 0}, {});
    const StoreRef ref = insertLeaf("a");
    for (const StoreCommand command : {StoreCommand::get, StoreCommand::set, StoreCommand::connect,
                                       StoreCommand::directSet, static_cast<StoreCommand>(99)})
        store.receiveMsg({0, ref, command, 0}, {});
    store.receiveMsg({0, ref, StoreCommand::call, 3}, {}); // one past the last function
    messages::Message message;
    EXPECT_FALSE(channel.try_dequeue(message));
}

TEST_F(StoreTest, AFailureLeavesTheStoreUsable)
{
    const StoreRef ref = insertLeaf("a");
    EXPECT_EQ(test::errorOf([&] {
                  store.receiveMsg({0, ref, StoreCommand::call, 1}, Bytes(3));
              }),
              "Failed to read 4 bytes from input stream! Read 3");
    EXPECT_TRUE(std::async(std::launch::async, [&] { return store.erase(ref); }).get()); // the mutex is free
}

} // namespace
