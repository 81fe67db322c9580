#pragma once

// The extensions known to the device.

#include <string>

/// Returns 1 if an extension of exactly that name is listed under one of the five kinds, otherwise
/// 0. Re-reads the database on every call. Throws std::runtime_error if it cannot be read.
int extension_exists(const std::string& name);
