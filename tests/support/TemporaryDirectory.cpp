#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

TemporaryDirectory::TemporaryDirectory() : root((std::filesystem::temp_directory_path() / "wyvern-XXXXXX").string()) {
    if (mkdtemp(root.data()) == nullptr) {
        throw std::runtime_error("cannot make a temporary directory " + root);
    }
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
}

std::string TemporaryDirectory::write(const std::string& name, const std::string& content) const {
    const std::filesystem::path file = std::filesystem::path(root) / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary);
    stream.write(content.data(), static_cast<std::streamsize>(content.size()));
    stream.close();
    if (!stream) {
        throw std::runtime_error("cannot write " + file.string());
    }
    return file.string();
}

std::string PathOfLength(size_t length, const std::string& directory, const std::string& name) {
    return directory + std::string(length - directory.size() - name.size(), '/') + name;
}

std::string ReadWholeFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    EXPECT_TRUE(stream.is_open()) << "cannot read " << path;
    return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}
