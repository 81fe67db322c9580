#include "config/config_buffer.h"

#include <cstring>

namespace {

constexpr unsigned BUFFER_SIZE = 4096;  // bytes; bounds names and passwords that can be stored

}  // namespace

SmartBuffer::SmartBuffer() : data(new char[BUFFER_SIZE]()), size(BUFFER_SIZE) {}

SmartBuffer::~SmartBuffer() {
    explicit_bzero(data, size);
    delete[] data;
}

UnreadableFile::UnreadableFile(const std::string& path, int error_number)
    : std::runtime_error(path + ": " + std::strerror(error_number)) {}
