// The values of the settings that differ from their defaults, kept in a text file of lines
// NAME=VALUE.
#pragma once

#include <map>
#include <string>

#include "gateway/schema.h"

using Values = std::map<std::string, std::string>;

class Store {
  public:
    // Reads the file. Values that the schema does not allow are dropped and reported on standard
    // error; a missing file is an empty store.
    Store(std::string path, const Schema& schema);

    // Returns the value of a setting, or its default if it was never saved.
    [[nodiscard]] const std::string& value(const std::string& full_name,
                                           const Setting& setting) const;

    // Replaces values and writes the file, both or neither: a reader of the file sees the old or
    // the new one, even after a power failure. Returns the reason of a failure, or nothing.
    std::string save(const Values& changes);

  private:
    std::string path_;
    Values values_;
};
