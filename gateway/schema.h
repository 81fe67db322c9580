// The settings that the back end knows, their types and limits, read from a text file.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

// A setting of a part. `limits` is as in the schema file: "1..65535", "udp|tcp|tls", "40".
struct Setting {
    std::string name;
    std::string type;
    std::string limits;
    std::string default_value;
};

// A part and its settings, in the order of the file. The settings of an extension part exist once
// for every extension.
struct Part {
    bool per_extension = false;
    std::string name;
    std::string caption;
    std::vector<Setting> settings;
};

class Schema {
  public:
    // Reads the schema file. An unreadable file gives a schema without settings; an invalid line is
    // skipped and reported on standard error.
    explicit Schema(const std::string& path);

    // The general part of that name, or the extension part with that caption; null if there is
    // none.
    [[nodiscard]] const Part* general_part(std::string_view name) const;
    [[nodiscard]] const Part* extension_part(std::string_view caption) const;

    // The setting PART.NAME or PART.EXTENSION.NAME, whether or not the extension exists; null if
    // there is none. Sets `extension` to the extension's name, or to nothing in a general part.
    const Setting* find(std::string_view full_name, std::string& extension) const;

  private:
    std::vector<Part> parts_;
};

// The name that an administrator reads and types; `extension` is empty for a general part.
std::string full_name(const Part& part, std::string_view extension, const Setting& setting);

// Returns why the setting cannot have the value, or nothing if it can.
std::string objection(const Setting& setting, std::string_view value);

// Returns whether the extension database lists an extension of that name, of any kind.
bool extension_listed(const std::string& database_path, std::string_view extension);
