#include "gateway/store.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <utility>

namespace {

// Flushes the file or folder to disk. On failure returns false with errno set.
bool sync_to_disk(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    const bool synced = fsync(descriptor) == 0;
    const int error = errno;
    close(descriptor);
    errno = error;
    return synced;
}

bool write_file(const std::string& path, const Values& values) {
    std::ofstream file(path, std::ios::trunc);
    for (const auto& [name, value] : values) {
        file << name << '=' << value << '\n';
    }
    file.close();
    return file.good() && sync_to_disk(path);
}

}  // namespace

Store::Store(std::string path, const Schema& schema) : path_(std::move(path)) {
    std::ifstream file(path_);
    std::string line;
    while (std::getline(file, line)) {
        const auto equals = line.find('=');
        std::string extension;
        const Setting* setting = schema.find(line.substr(0, equals), extension);
        if (equals != std::string::npos && setting != nullptr &&
            objection(*setting, line.substr(equals + 1)).empty()) {
            values_[line.substr(0, equals)] = line.substr(equals + 1);
        } else {
            std::cerr << "store: left out: " << line << '\n';
        }
    }
}

const std::string& Store::value(const std::string& full_name, const Setting& setting) const {
    const auto found = values_.find(full_name);
    return found == values_.end() ? setting.default_value : found->second;
}

std::string Store::save(const Values& changes) {
    Values values = values_;
    for (const auto& [name, value] : changes) {
        values[name] = value;
    }
    const std::string written = path_ + ".new";
    const std::string folder = path_.substr(0, path_.rfind('/'));
    errno = 0;
    if (!write_file(written, values) || std::rename(written.c_str(), path_.c_str()) != 0) {
        std::string reason = std::strerror(errno == 0 ? EIO : errno);
        unlink(written.c_str());
        return reason;
    }
    if (!sync_to_disk(folder)) {
        std::cerr << "store: " << folder << ": " << std::strerror(errno) << '\n';
    }
    values_ = std::move(values);
    return {};
}
