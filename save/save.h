#pragma once

// Hands the pending settings to the back end and shows what it answers.

#include <cstddef>
#include <list>
#include <string>

/// The save command. Empties the queue whatever the outcome. Returns -1 when there was nothing to
/// save, else 0; the argument is ignored.
int handle_save(char* argument) noexcept;

/// Writes a version line, unless the first setting holds one, and the settings, one a line.
/// Silently does nothing when the file cannot be created.
void write_query_file(const std::string& path, const std::list<std::string>& settings);

/// Runs the save program on the file at that path and prints its answer in words.
void run_putconf(const std::string& path);

/// Replaces every occurrence of from, which is not empty, by to, beginning at start. Inserted text
/// is not searched again.
void replace_all(std::string& text, const char* from, const char* to, std::size_t start);

/// Turns the markers of the save program's answer into words, in place.
void rewrite_markers(std::string& text);
