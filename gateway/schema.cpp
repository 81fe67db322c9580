#include "gateway/schema.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iostream>
#include <sstream>

namespace {

constexpr std::string_view extension_kinds[] = {"attendant", "extension", "pickup", "callpark",
                                                "paging"};
constexpr std::string_view digits = "0123456789";
constexpr std::string_view host_characters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.:-_";
constexpr std::size_t longest_host = 253;
constexpr std::size_t longest_number = 32;

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool to_integer(std::string_view text, long& value) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

bool only_of(std::string_view text, std::string_view allowed) {
    return text.find_first_not_of(allowed) == std::string_view::npos;
}

std::string integer_objection(std::string_view limits, std::string_view value) {
    const auto dots = limits.find("..");
    long low = 0;
    long high = 0;
    long number = 0;
    if (dots == std::string_view::npos || !to_integer(limits.substr(0, dots), low) ||
        !to_integer(limits.substr(dots + 2), high)) {
        return "The schema has no range for it";
    }
    if (to_integer(value, number) && number >= low && number <= high) {
        return {};
    }
    return "It must be a whole number from " + std::to_string(low) + " to " + std::to_string(high);
}

std::string choice_objection(std::string_view limits, std::string_view value) {
    std::string choices;
    while (true) {
        const auto bar = limits.find('|');
        const auto choice = limits.substr(0, bar);
        if (choice == value) {
            return {};
        }
        choices.append(choices.empty() ? "" : ", ").append(choice);
        if (bar == std::string_view::npos) {
            return "It must be one of " + choices;
        }
        limits.remove_prefix(bar + 1);
    }
}

// An administrator types a setting as one word, so no value has blanks.
std::string text_objection(std::string_view limits, std::string_view value) {
    long longest = 0;
    to_integer(limits, longest);
    if (std::any_of(value.begin(), value.end(), [](char c) {
            const auto byte = static_cast<unsigned char>(c);
            return byte <= ' ' || byte == 0x7f;
        })) {
        return "It must not have blanks or control characters";
    }
    if (value.size() > static_cast<std::size_t>(longest)) {
        return "It must not be longer than " + std::string(limits) + " characters";
    }
    return {};
}

std::string host_objection(std::string_view value) {
    if (value.size() <= longest_host && only_of(value, host_characters)) {
        return {};
    }
    return "It must be a host name or an address";
}

std::string number_objection(std::string_view value) {
    auto rest = value;
    if (!rest.empty() && rest.front() == '+') {
        rest.remove_prefix(1);
    }
    if (value.size() <= longest_number && only_of(rest, std::string(digits) + "*#") &&
        !(value == "+")) {
        return {};
    }
    return "It must be a telephone number";
}

bool read_part_line(std::istringstream& line, Part& part) {
    std::string scope;
    std::string caption;
    line >> scope >> part.name;
    std::getline(line, caption);
    part.caption = trimmed(caption);
    part.per_extension = scope == "extension";
    return (scope == "general" || scope == "extension") && !part.caption.empty();
}

bool read_setting_line(std::istringstream& line, Setting& setting) {
    line >> setting.name >> setting.type >> setting.limits >> setting.default_value;
    if (line.fail()) {
        return false;
    }
    if (setting.default_value == "-") {
        setting.default_value.clear();
    }
    const std::string problem = objection(setting, setting.default_value);
    if (!problem.empty()) {
        std::cerr << "schema: the default of " << setting.name << ": " << problem << '\n';
    }
    return problem.empty();
}

}  // namespace

Schema::Schema(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        std::cerr << "schema: " << path << " cannot be read\n";
    }
    std::string text;
    while (std::getline(file, text)) {
        const auto content = trimmed(text);
        if (content.empty() || content.front() == '#') {
            continue;
        }
        std::istringstream line(text);
        Part part;
        Setting setting;
        if (text.front() != ' ' && read_part_line(line, part)) {
            parts_.push_back(part);
        } else if (text.front() == ' ' && !parts_.empty() && read_setting_line(line, setting)) {
            parts_.back().settings.push_back(setting);
        } else {
            std::cerr << "schema: skipped: " << text << '\n';
        }
    }
}

const Part* Schema::general_part(std::string_view name) const {
    const auto found = std::find_if(parts_.begin(), parts_.end(), [&](const Part& part) {
        return !part.per_extension && part.name == name;
    });
    return found == parts_.end() ? nullptr : &*found;
}

const Part* Schema::extension_part(std::string_view caption) const {
    const auto found = std::find_if(parts_.begin(), parts_.end(), [&](const Part& part) {
        return part.per_extension && part.caption == caption;
    });
    return found == parts_.end() ? nullptr : &*found;
}

const Setting* Schema::find(std::string_view full_name, std::string& extension) const {
    const auto first = full_name.find('.');
    const auto last = full_name.rfind('.');
    if (first == std::string_view::npos) {
        return nullptr;
    }
    const auto part_name = full_name.substr(0, first);
    const auto setting_name = full_name.substr(last + 1);
    const bool per_extension = first != last;
    extension = per_extension ? full_name.substr(first + 1, last - first - 1) : std::string_view();
    if (per_extension && extension.empty()) {
        return nullptr;
    }
    for (const Part& part : parts_) {
        if (part.per_extension != per_extension || part.name != part_name) {
            continue;
        }
        for (const Setting& setting : part.settings) {
            if (setting.name == setting_name) {
                return &setting;
            }
        }
    }
    return nullptr;
}

std::string full_name(const Part& part, std::string_view extension, const Setting& setting) {
    std::string name = part.name + '.';
    if (part.per_extension) {
        name.append(extension).append(".");
    }
    return name + setting.name;
}

std::string objection(const Setting& setting, std::string_view value) {
    if (setting.type == "integer") {
        return integer_objection(setting.limits, value);
    }
    if (setting.type == "choice") {
        return choice_objection(setting.limits, value);
    }
    if (setting.type == "boolean") {
        return choice_objection("on|off", value);
    }
    if (setting.type == "text") {
        return text_objection(setting.limits, value);
    }
    if (setting.type == "host") {
        return host_objection(value);
    }
    if (setting.type == "number") {
        return number_objection(value);
    }
    return "The schema gives it the unknown type " + setting.type;
}

bool extension_listed(const std::string& database_path, std::string_view extension) {
    std::ifstream file(database_path);
    std::string text;
    bool in_kind = false;
    while (std::getline(file, text)) {
        auto line = trimmed(text);
        constexpr std::string_view keyword = "section ";
        const auto equals = line.find('=');
        if (line.substr(0, keyword.size()) == keyword) {
            const auto name = trimmed(line.substr(keyword.size(), line.find('{') - keyword.size()));
            in_kind = std::find(std::begin(extension_kinds), std::end(extension_kinds), name) !=
                      std::end(extension_kinds);
        } else if (in_kind && equals != std::string_view::npos && line.front() != '#' &&
                   trimmed(line.substr(equals + 1)) == extension) {
            return true;
        }
    }
    return false;
}
