#include "ondra/SpinLock.h"

#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

TEST(SpinLock, LetsOneInAtATime)
{
    constexpr int threadCount = 3, turns = 2000;
    ondra::SpinLock lock;
    static_assert(sizeof lock == 1);
    int inside = 0, total = 0; // plain: the lock alone keeps them right
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < threadCount; ++i)
            threads.emplace_back([&] {
                for (int n = 0; n < turns; ++n) {
                    const std::lock_guard guard(lock);
                    EXPECT_EQ(++inside, 1);
                    ++total;
                    --inside;
                }
            });
    }
    EXPECT_EQ(total, threadCount * turns);
    EXPECT_TRUE(lock.try_lock());
    EXPECT_FALSE(lock.try_lock());
    lock.unlock();
    EXPECT_TRUE(lock.try_lock());
}
