#pragma once
// Files for as long as an object lives, and what files hold.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

/// A folder of its own, removed at the end with all in it.
class TemporaryFolder {
public:
    TemporaryFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "vorna-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
        folder = name;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() { std::filesystem::remove_all(folder); }

    std::string file(const std::string& name) const { return folder.string() + "/" + name; }
    std::size_t entries() const
    {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
    }

private:
    std::filesystem::path folder;
};

inline std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

inline void write(const std::string& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary) << content;
}

/// A file with given bytes.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::vector<std::uint8_t>& bytes) { write(path(), {bytes.begin(), bytes.end()}); }
    std::string path() const { return folder.file("file"); }

private:
    TemporaryFolder folder;
};
