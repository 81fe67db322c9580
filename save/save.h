#pragma once

// Passes the pending settings to the back end and shows its answer.

#include <cstddef>
#include <list>
#include <string>

/// The save command. Empties the queue and returns 0, whatever the back end answers. Returns -1 if
/// there is nothing to save, or if the wait for the turn is interrupted or memory runs out: the
/// settings are then kept. The argument is ignored.
int handle_save(char* argument) noexcept;

/// Writes the settings, one per line, after a version line unless the first setting contains one.
/// Does nothing if the file cannot be created.
void write_query_file(const std::string& path, const std::list<std::string>& settings);

/// Runs the save program on the file at path and prints its answer in words.
void run_putconf(const std::string& path);

/// Replaces every occurrence of from, which is not empty, at or after start with to. Inserted text
/// is not searched again.
void replace_all(std::string& text, const char* from, const char* to, std::size_t start);

/// Replaces the markers in the save program's answer with words.
void rewrite_markers(std::string& text);
