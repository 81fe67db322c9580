#include "config/config_file.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "config/config_buffer.h"
#include "tests/unit/temporary_folder.h"

namespace {

std::string version_of(const std::string& path) {
    ConfigFile file(path.c_str(), false, false);
    file.ChangeSyntax(':', '\n', '#');
    return file.GetEntry("Version");
}

TEST(ConfigFile, GivesTheValueOfAnEntryOfTheVersionFile) {
    const TemporaryFolder folder;
    const std::vector<std::pair<std::string, std::string>> files = {
        {"Version: 2.1\n", "2.1"},
        {"Version:2.1", "2.1"},
        {" Version \t:\t 2.1 \r\n", "2.1"},
        {"# Version: 1\nName: x\nVersion: 2.1 # beta\n", "2.1"},
        {"Version: 2.1\nVersion: 3\n", "2.1"},
        {"Version: 2:1\n", "2:1"},
        {"Version: 2 1\n", "2 1"},
        {"Version: \"2.1\"\n", "\"2.1\""},
        {"Version: 2#1\n", "2#1"},
        {"Version:\n", ""},
    };
    for (const auto& [text, expected] : files) {
        EXPECT_EQ(version_of(folder.write("version", text)), expected) << text;
    }
}

TEST(ConfigFile, GivesTheMarkerForAnAbsentEntry) {
    const TemporaryFolder folder;
    for (const char* text : {"", "\n\n", "version: 1\nVERSION: 2\n", "Version = 1\n",
                             "# Version: 1\n", "Version\n", "My Version: 1\n"}) {
        EXPECT_EQ(version_of(folder.write("version", text)), ConfigBuffer::ENTRY_NOT_FOUND) << text;
    }
}

TEST(ConfigFile, HasNoEntriesWhenMissingOrADirectory) {
    const TemporaryFolder folder;
    EXPECT_EQ(version_of(folder.path("missing")), "ENTRY_NOT_FOUND");
    EXPECT_EQ(version_of(folder.path()), "ENTRY_NOT_FOUND");
}

TEST(ConfigFile, SyntaxIsAnEqualsSignALineFeedAndAHashUntilChanged) {
    const TemporaryFolder folder;
    ConfigFile file(folder.write("file", "a=1 # c\nb=2;c:3 % d").c_str(), false, false);
    EXPECT_EQ(file.GetEntry("a"), "1");
    EXPECT_EQ(file.GetEntry("b"), "2;c:3 % d");
    file.ChangeSyntax(':', ';', '%');
    EXPECT_EQ(file.GetEntry("c"), "3");
    EXPECT_EQ(file.GetEntry("a"), "ENTRY_NOT_FOUND");
}

TEST(ConfigFile, OptionsChangeNothing) {
    const TemporaryFolder folder;
    const std::string path = folder.write("file", "a=1\n");
    for (const bool first : {false, true}) {
        for (const bool second : {false, true}) {
            EXPECT_EQ(ConfigFile(path.c_str(), first, second).GetEntry("a"), "1");
        }
    }
}

}  // namespace
