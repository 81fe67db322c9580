#pragma once

// A second implementation of the syntax of configuration files, slow, simple and on copies, to
// compare the readers with.

#include <string>
#include <utility>
#include <vector>

using PlainEntries = std::vector<std::pair<std::string, std::string>>;

struct PlainSection {
    std::string header;
    PlainEntries entries;
};

PlainEntries plain_entries(const std::string& text, char assignment, char end, char comment);

std::vector<PlainSection> plain_sections(const std::string& text, const std::string& keyword);

/// The first value of that key, or what a reader returns if there is none.
std::string plain_value(const PlainEntries& entries, const std::string& key);

bool plain_has(const PlainEntries& entries, const std::string& key);
