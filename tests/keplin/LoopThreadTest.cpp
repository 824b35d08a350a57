#include "keplin/io/LoopThread.h"

#include <chrono>

#include <gtest/gtest.h>

using keplin::LoopThread;

// While another thread waits for the loop's end, and after the loop has ended itself.
TEST(LoopThread, TheLoopItselfCanNeitherStartItNorChangeThings)
{
    LoopThread loop;
    for (const bool endsItself : {false, true}) {
        std::atomic<bool> entered = false, changed = false;
        loop.start([&] {
            entered = true;
            entered.notify_all();
            if (endsItself)
                loop.stop();
            while (loop.running())
                std::this_thread::yield();
            loop.start([] {});
            EXPECT_FALSE(loop.whileStopped([&] { changed = true; }));
        });
        entered.wait(false);
        if (!endsItself)
            loop.stop();
        EXPECT_TRUE(loop.whileStopped([&] { EXPECT_FALSE(changed); })) << "it waits for the loop's end";
    }
}

// A start() that waits for the last loop's end holds the mutex; the stop() that comes meanwhile must end the new loop.
// Which of the two is first is not in our hands, so it is tried often.
TEST(LoopThread, AStopEndsALoopThatIsJustBeingStarted)
{
    std::atomic<bool> forgotten = false; // a loop that nobody stopped
    for (int round = 0; round < 100 && !forgotten; ++round) {
        LoopThread loop;
        std::atomic<bool> mayEnd = false;
        loop.start([&] {
            loop.stop();
            mayEnd.wait(false);
        });
        while (loop.running())
            std::this_thread::yield();
        const auto startThread = [](const auto& function) {
            std::atomic<bool> calling = false;
            std::thread thread([&calling, function] {
                calling = true;
                function();
            });
            for (int turns = 0; !calling || turns < 20; ++turns)
                std::this_thread::yield();
            return thread;
        };
        std::thread starter = startThread([&] {
            loop.start([&] {
                const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
                while (loop.running() && !forgotten)
                    forgotten = std::chrono::steady_clock::now() > end;
            });
        });
        std::thread stopper = startThread([&] { loop.stop(); });
        mayEnd = true;
        mayEnd.notify_all();
        stopper.join();
        starter.join();
        loop.stop();
    }
    EXPECT_FALSE(forgotten);
}
