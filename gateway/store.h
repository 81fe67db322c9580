// The values of the settings that differ from their defaults, kept in a text file of lines
// NAME=VALUE that outlives the back end.
#pragma once

#include <map>
#include <string>

#include "gateway/schema.h"

using Values = std::map<std::string, std::string>;

class Store {
  public:
    // Reads the file. What the schema does not allow is left out and told on standard error; a
    // missing file is an empty store.
    Store(std::string path, const Schema& schema);

    // The value of a setting, its default when it was never saved.
    [[nodiscard]] const std::string& value(const std::string& full_name,
                                           const Setting& setting) const;

    // Replaces values and writes the file, both or neither: a reader of the file sees the old or
    // the new one, also after a power cut. Returns why it failed, empty when it did not.
    std::string save(const Values& changes);

  private:
    std::string path_;
    Values values_;
};
