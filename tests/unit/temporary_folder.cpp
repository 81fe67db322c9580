#include "tests/unit/temporary_folder.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

TemporaryFolder::TemporaryFolder()
    : path_(std::filesystem::temp_directory_path() / "tessel_unit_XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
        std::perror("mkdtemp");
        std::abort();
    }
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryFolder::path(const std::string& name) const {
    return name.empty() ? path_ : path_ + "/" + name;
}

std::string TemporaryFolder::write(const std::string& name, const std::string& text) const {
    const std::filesystem::path file = path(name);
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
    return file;
}

std::string file_text(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}
