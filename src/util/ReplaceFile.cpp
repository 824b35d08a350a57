#include "util/ReplaceFile.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace util {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view suffix = ".tmp";

class File {
public:
    explicit File(int descriptor = -1) : descriptor_(descriptor) {}
    File(File&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    File& operator=(File&&) = delete;
    ~File() { close(); }

    bool isOpen() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; }

    bool write(std::string_view content)
    {
        while (!content.empty()) {
            const ssize_t written = ::write(descriptor_, content.data(), content.size());
            if (written < 0 && errno != EINTR)
                return false;
            if (written > 0)
                content.remove_prefix(static_cast<std::size_t>(written));
        }
        return true;
    }

    // Some file systems report a failed write only here.
    bool close()
    {
        if (descriptor_ < 0)
            return true;
        return ::close(std::exchange(descriptor_, -1)) == 0;
    }

private:
    int descriptor_;
};

[[noreturn]] void throwWriteFailure(const std::string& path, int error)
{
    throw std::runtime_error("Cannot write the state file " + path + ": " + std::generic_category().message(error));
}

// What `path` leads to, over links that may end at a file that doesn't exist yet.
fs::path followed(fs::path path)
{
    constexpr int mostLinks = 40; // as the kernel
    for (int links = 0; links < mostLinks; ++links) {
        std::error_code error;
        const fs::path target = fs::read_symlink(path, error);
        if (error)
            break;
        path = path.parent_path() / target;
    }
    return path;
}

void writeInPlace(const std::string& path, std::string_view content)
{
    File file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (file.isOpen() && !(file.write(content) && file.close()))
        throwWriteFailure(path, errno);
}

// So that the new name survives a power cut too. Some file systems can't do it, which is no reason to fail.
void syncFolder(const fs::path& folder)
{
    const File file(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (file.isOpen())
        ::fsync(file.descriptor());
}

// ---- the file beside the target ----------------------------------------------------------------------------------
//
// Its writer holds a lock on it (flock), which the kernel releases when the process ends. The process id in its name
// says the same where locks don't work. The id alone would not be enough, since another container may use the same
// number.

// A new file with a lock on it; not open when the folder takes none.
File openBeside(const fs::path& path, std::string& name)
{
    static std::atomic<unsigned> counter = 0; // two threads may save to one path
    constexpr int mostAttempts = 1000;
    for (int attempt = 0; attempt < mostAttempts; ++attempt) {
        name = path.string() + "." + std::to_string(::getpid()) + "-" + std::to_string(counter++);
        name += suffix;
        File file(::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        if (!file.isOpen()) {
            if (errno != EEXIST) // else left by a process that had our number
                break;
            continue;
        }
        struct stat made {};
        while (::flock(file.descriptor(), LOCK_EX) != 0 && errno == EINTR) {
        }
        if (::fstat(file.descriptor(), &made) == 0 && made.st_nlink > 0) // else removed before it was locked
            return file;
    }
    return File();
}

// The process in `name`, which is "<prefix><process>-<n>.tmp"; empty for other names.
std::optional<pid_t> writerOf(std::string_view name, std::string_view prefix)
{
    if (name.size() <= prefix.size() + suffix.size() || !name.starts_with(prefix) || !name.ends_with(suffix))
        return std::nullopt;
    name.remove_prefix(prefix.size());
    name.remove_suffix(suffix.size());
    pid_t process = 0;
    unsigned count = 0;
    const char* const end = name.data() + name.size();
    const auto [dash, error] = std::from_chars(name.data(), end, process);
    if (error != std::errc() || dash == end || *dash != '-' || process <= 0)
        return std::nullopt;
    const auto [last, countError] = std::from_chars(dash + 1, end, count);
    return countError == std::errc() && last == end ? std::optional(process) : std::nullopt;
}

double seconds(const timespec& time)
{
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

// Whether the process lives and is the one that had this number at the time of `lastWrite`.
bool isStillThere(pid_t process, const timespec& lastWrite)
{
    if (::kill(process, 0) != 0 && errno == ESRCH)
        return false;
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t name = line.rfind(')'); // "1234 (name) S 1 ...": the name may hold anything
    if (name == std::string::npos)
        return true; // hidden from us
    std::istringstream fields(line.substr(name + 1));
    char state = 0;
    fields >> state;
    if (state == 'Z' || state == 'X')
        return false; // it ended, and its parent hasn't asked for the exit code yet
    constexpr int fieldsBetween = 18;
    std::string skipped;
    for (int i = 0; i < fieldsBetween; ++i)
        fields >> skipped;
    long long startTicks = 0;
    fields >> startTicks;
    timespec now{}, sinceBoot{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    ::clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    const double age =
        seconds(sinceBoot) - static_cast<double>(startTicks) / static_cast<double>(::sysconf(_SC_CLK_TCK));
    constexpr double tolerance = 1; // of clocks and ticks
    return seconds(now) - age <= seconds(lastWrite) + tolerance;
}

// Removes the file while it is locked, so that a writer who waits for the lock sees it.
void removeIfAbandoned(const fs::path& path, pid_t writer)
{
    const File file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat found {};
    if (file.isOpen() && ::fstat(file.descriptor(), &found) == 0 && S_ISREG(found.st_mode) &&
        ::flock(file.descriptor(), LOCK_EX | LOCK_NB) == 0 && !isStillThere(writer, found.st_mtim))
        ::unlink(path.c_str());
}

// Removes what processes that died while they replaced `target` left in `folder`.
void removeAbandoned(const fs::path& folder, const std::string& target)
{
    const std::string prefix = target + ".";
    std::error_code error; // what can't be listed or removed stays
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        if (const std::optional<pid_t> writer = writerOf(entry->path().filename().native(), prefix))
            removeIfAbandoned(entry->path(), *writer);
    }
}

} // namespace

void replaceFile(const std::string& path, std::string_view content)
{
    struct stat old {};
    const bool exists = ::stat(path.c_str(), &old) == 0;
    if (!exists && errno != ENOENT)
        return;
    if (exists && !S_ISREG(old.st_mode)) {
        if (!S_ISDIR(old.st_mode))
            writeInPlace(path, content); // a device or a pipe can't be replaced
        return;
    }
    const fs::path target = followed(path);
    if (!target.has_filename() || (exists && ::access(target.c_str(), W_OK) != 0))
        return;

    std::string beside;
    File file = openBeside(target, beside);
    if (!file.isOpen())
        return writeInPlace(target, content); // a folder that takes no new file may still hold one that can be written
    const bool modeKept = !exists || ::fchmod(file.descriptor(), old.st_mode & 07777) == 0;
    const bool written = modeKept && file.write(content) && ::fsync(file.descriptor()) == 0 &&
                         ::rename(beside.c_str(), target.c_str()) == 0;
    if (!written) {
        const int error = errno;
        ::unlink(beside.c_str());
        throwWriteFailure(path, error);
    }
    const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
    syncFolder(folder);
    removeAbandoned(folder, target.filename().native());
}

} // namespace util
