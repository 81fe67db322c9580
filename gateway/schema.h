// The settings that the back end knows, their types and limits, read from a text file.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

// One setting of a part. `limits` is as the schema file has it: "1..65535", "udp|tcp|tls", "40".
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
    // Reads the schema file. An unreadable file gives a schema that knows no setting; a line that
    // makes no sense is skipped and told on standard error.
    explicit Schema(const std::string& path);

    // The general part of that name, the extension part of that caption; null when there is none.
    [[nodiscard]] const Part* general_part(std::string_view name) const;
    [[nodiscard]] const Part* extension_part(std::string_view caption) const;

    // The setting that PART.NAME or PART.EXTENSION.NAME means, whether or not the extension exists;
    // null when there is none. `extension` becomes the extension's name, empty in a general part.
    const Setting* find(std::string_view full_name, std::string& extension) const;

  private:
    std::vector<Part> parts_;
};

// The name that an administrator reads and types; `extension` is empty for a general part.
std::string full_name(const Part& part, std::string_view extension, const Setting& setting);

// Says why the setting cannot have the value; empty when it can.
std::string objection(const Setting& setting, std::string_view value);

// Tells whether the extension database lists an extension of that name, of whatever kind.
bool extension_listed(const std::string& database_path, std::string_view extension);
