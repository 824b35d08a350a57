#pragma once
// A file with given bytes, for as long as the object lives.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

class TemporaryFile {
public:
    explicit TemporaryFile(const std::vector<std::uint8_t>& bytes)
    {
        std::string name = (std::filesystem::temp_directory_path() / "vorna-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
        folder = name;
        std::ofstream(path(), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() { std::filesystem::remove_all(folder); }

    std::string path() const { return (folder / "file").string(); }

private:
    std::filesystem::path folder;
};
