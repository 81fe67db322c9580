#pragma once

// The extensions that the device knows.

#include <string>

/// 1 when an extension of exactly that name is listed under one of the five kinds, else 0. The
/// database is read anew at every call. Throws a runtime error when it cannot be read.
int extension_exists(const std::string& name);
