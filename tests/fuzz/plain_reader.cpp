#include "tests/fuzz/plain_reader.h"

namespace {

constexpr const char* BLANKS = " \t\r";

std::vector<std::string> split(const std::string& text, char end) {
    std::vector<std::string> lines(1);
    for (const char c : text) {
        if (c == end) {
            lines.emplace_back();
        } else {
            lines.back() += c;
        }
    }
    return lines;
}

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(BLANKS);
    if (first == std::string::npos) {
        return "";
    }
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

std::string without_comment(const std::string& line, char comment) {
    std::string kept;
    int quotes = 0;
    for (const char c : line) {
        if (c == comment && quotes % 2 == 0 && (trimmed(kept).empty() || is_blank(kept.back()))) {
            break;
        }
        quotes += c == '"' ? 1 : 0;
        kept += c;
    }
    return trimmed(kept);
}

// The header of the section that begins in this line. An opening mark on a line of its own is
// searched for from the next line on. Sets first to the section's first line.
bool is_opening(const std::vector<std::string>& lines, std::size_t i, const std::string& keyword,
                std::string& header, std::size_t& first) {
    const std::string line = without_comment(lines[i], '#');
    if (line.compare(0, keyword.size(), keyword) != 0) {
        return false;
    }
    header = line.substr(keyword.size());
    if (!header.empty() && header[0] != '{' && !is_blank(header[0])) {
        return false;
    }
    first = i + 1;
    if (!header.empty() && header.back() == '{') {
        header.pop_back();
        header = trimmed(header);
        return true;
    }
    header = trimmed(header);
    while (first < lines.size() && without_comment(lines[first], '#').empty()) {
        ++first;
    }
    return first < lines.size() && without_comment(lines[first++], '#') == "{";
}

void add_entry(PlainEntries& entries, const std::string& raw, char assignment, char comment) {
    const std::string line = without_comment(raw, comment);
    const std::size_t position = line.find(assignment);
    if (position != std::string::npos) {
        entries.emplace_back(trimmed(line.substr(0, position)), trimmed(line.substr(position + 1)));
    }
}

}  // namespace

PlainEntries plain_entries(const std::string& text, char assignment, char end, char comment) {
    PlainEntries entries;
    for (const std::string& line : split(text, end)) {
        add_entry(entries, line, assignment, comment);
    }
    return entries;
}

std::vector<PlainSection> plain_sections(const std::string& text, const std::string& keyword) {
    const std::vector<std::string> lines = split(text, '\n');
    std::vector<PlainSection> sections;
    bool open = false;
    std::string header;
    for (std::size_t i = 0, first = 0; i < lines.size();) {
        if (is_opening(lines, i, keyword, header, first)) {
            sections.push_back({header, {}});
            open = true;
            i = first;
            continue;
        }
        if (open && without_comment(lines[i], '#') == "}") {
            open = false;
        } else if (open) {
            add_entry(sections.back().entries, lines[i], '=', '#');
        }
        ++i;
    }
    return sections;
}

std::string plain_value(const PlainEntries& entries, const std::string& key) {
    for (const auto& entry : entries) {
        if (entry.first == key) {
            return entry.second;
        }
    }
    return "ENTRY_NOT_FOUND";
}

bool plain_has(const PlainEntries& entries, const std::string& key) {
    for (const auto& entry : entries) {
        if (entry.first == key) {
            return true;
        }
    }
    return false;
}
