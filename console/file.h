#pragma once

#include <cstdio>
#include <memory>

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

/// An open file, or null; closed on destruction.
using File = std::unique_ptr<std::FILE, FileCloser>;
