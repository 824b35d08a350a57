#include "util/ReplaceFile.h"

#include <csignal>
#include <functional>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "../ErrorOf.h"
#include "TemporaryFile.h"

namespace {

namespace fs = std::filesystem;
using util::replaceFile;

std::function<void(const std::string& path)> onSync; // what the test does at each fsync of the process

} // namespace

extern "C" int fsync(int descriptor)
{
    if (onSync)
        onSync(fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor)).string());
    return static_cast<int>(::syscall(SYS_fsync, descriptor));
}

namespace {

TEST(ReplaceFile, TheNewFileIsOnDiskBeforeItTakesTheName)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("state");
    write(path, "old");
    std::vector<std::string> synced;
    onSync = [&](const std::string& what) {
        synced.push_back(what.starts_with(path + ".") ? "new file: " + contentOf(what) : what + "/");
        synced.push_back(contentOf(path));
    };
    replaceFile(path, "content");
    onSync = nullptr;
    EXPECT_THAT(synced, testing::ElementsAre("new file: content", "old", folder.file(""), "content"));
    EXPECT_EQ(folder.entries(), 1U);
}

TEST(ReplaceFile, AFullDiskLeavesTheOldFile)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("state");
    write(path, "old");
    // A limit on the size of files stands for the full disk; it holds for the process, so the write is in a child.
    const auto replaceWithLimit = [&] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{16, 16};
        setrlimit(RLIMIT_FSIZE, &limit);
        const std::string error = errorOf([&] { replaceFile(path, std::string(100, 'x')); });
        _exit(error == "Cannot write the state file " + path + ": File too large" ? 7 : 8);
    };
    EXPECT_EXIT(replaceWithLimit(), testing::ExitedWithCode(7), "");
    EXPECT_EQ(contentOf(path), "old");
    EXPECT_EQ(folder.entries(), 1U);
}

TEST(ReplaceFile, LinksModesAndDevicesStayWhatTheyAre)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("state"), link = folder.file("link");
    fs::create_symlink("second", link);
    fs::create_symlink("state", folder.file("second")); // leads to nothing yet
    replaceFile(link, "one");
    fs::permissions(path, fs::perms(0640));
    replaceFile(link, "two");
    EXPECT_EQ(contentOf(path), "two");
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(0640));
    replaceFile("/dev/null", "three");
    EXPECT_TRUE(fs::is_character_file("/dev/null"));

    fs::create_symlink("circle", folder.file("circle"));
    fs::create_symlink(folder.file("no/such"), folder.file("lost"));
    for (const char* closed : {"no/such/folder", "no/", "", "circle", "lost"})
        replaceFile(folder.file(closed), "content"); // without an error
    EXPECT_TRUE(fs::is_symlink(folder.file("circle")));
    EXPECT_EQ(folder.entries(), 5U);
}

TEST(ReplaceFile, WhatADeadProcessLeftIsRemovedByTheNextOne)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("state");
    const auto replaceAndRaise = [&](int signal) {
        onSync = [signal](const std::string&) { raise(signal); };
        replaceFile(path, "child");
        _exit(0);
    };
    EXPECT_EXIT(replaceAndRaise(SIGKILL), testing::KilledBySignal(SIGKILL), "");
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(folder.entries(), 1U);
    const pid_t writing = fork();
    if (writing == 0)
        replaceAndRaise(SIGSTOP);
    int status = 0;
    ASSERT_EQ(waitpid(writing, &status, WUNTRACED), writing);
    const pid_t zombie = fork();
    if (zombie == 0)
        _exit(0);
    siginfo_t ended;
    waitid(P_PID, static_cast<id_t>(zombie), &ended, WEXITED | WNOWAIT);

    const std::string ours = "." + std::to_string(getpid());
    const std::string earlier = path + ours + "-98.tmp"; // of a process that had our number before us
    const std::string removed[] = {earlier, path + "." + std::to_string(zombie) + "-0.tmp"};
    const std::string kept[] = {path + ours + "-99.tmp", path + ".tmp", path + ".x-0.tmp", path + ".2x-0.tmp"};
    for (const std::string& name : {removed[0], removed[1], kept[0], kept[1], kept[2], kept[3]})
        write(name, "");
    fs::last_write_time(earlier, fs::file_time_type::clock::now() - std::chrono::hours(24 * 365 * 20));
    replaceFile(path, "content");
    EXPECT_THAT(removed, testing::Each(testing::ResultOf([](auto& name) { return fs::exists(name); }, false)));
    EXPECT_THAT(kept, testing::Each(testing::ResultOf([](auto& name) { return fs::exists(name); }, true)));

    for (const int options : {WUNTRACED, 0}) { // it stops at its folder, too
        kill(writing, SIGCONT);
        ASSERT_EQ(waitpid(writing, &status, options), writing);
    }
    EXPECT_EQ(contentOf(path), "child");
    EXPECT_EQ(folder.entries(), 1 + std::size(kept));
    waitpid(zombie, nullptr, 0);
}

} // namespace
