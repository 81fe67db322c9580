#include "config/multi_section_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "config/config_buffer.h"
#include "tests/unit/freed_memory.h"
#include "tests/unit/temporary_folder.h"

namespace {

using std::string_literals::operator""s;

constexpr const char* DATABASE = R"(
section extension {
    a = 201
    b = "202" # second
    none
    a = 203
}
section admin
{
    user_name = admin
    password = pa#ss
    password = other
}
section empty {
}
section extension {
    a = 999
}
)";

class MultiSectionFileTest : public testing::Test {
  protected:
    using Entries = std::vector<std::pair<std::string, std::string>>;

    static Configuration::MultiSectionFile open(const std::string& path) {
        return {path.c_str(), false, false, false, "section", "{\n", "}\n", "=", "#", nullptr};
    }

    std::string current_value() {
        const SmartBuffer value;
        database_.GetSecCurrentEntry(nullptr, 0, value.data, value.size);
        return value.data;
    }

    Entries rest_of_section() {
        Entries entries;
        const SmartBuffer key;
        const SmartBuffer value;
        while (database_.GotoSecNextEntry() != 0) {
            database_.GetSecCurrentEntry(key.data, key.size, value.data, value.size);
            entries.emplace_back(key.data, value.data);
        }
        return entries;
    }

    TemporaryFolder folder_;
    Configuration::MultiSectionFile database_ = open(folder_.write("database", DATABASE));
};

TEST_F(MultiSectionFileTest, FindsASectionByItsExactName) {
    database_.Restart();
    EXPECT_EQ(database_.GotoSection("admin"), 1);
    EXPECT_EQ(database_.GotoSection("extension"), 1);
    EXPECT_EQ(database_.GotoSection("empty"), 1);
    for (const char* name : {"Admin", "adm", "admins", " admin", "", "trunk"}) {
        EXPECT_EQ(database_.GotoSection(name), 0) << name;
    }
}

TEST_F(MultiSectionFileTest, CursorVisitsEveryEntryOfTheSectionEqualKeysToo) {
    database_.Restart();
    ASSERT_EQ(database_.GotoSection("extension"), 1);
    database_.RestartSection();
    EXPECT_EQ(rest_of_section(), (Entries{{"a", "201"}, {"b", "\"202\""}, {"a", "203"}}));
    EXPECT_EQ(database_.GotoSecNextEntry(), 0);
}

TEST_F(MultiSectionFileTest, OfSectionsOfOneNameTheFirstIsFound) {
    ASSERT_EQ(database_.GotoSection("extension"), 1);
    ASSERT_EQ(database_.GotoSecNextEntry(), 1);
    EXPECT_EQ(current_value(), "201");
}

TEST_F(MultiSectionFileTest, SectionIsEnteredBeforeItsFirstEntry) {
    database_.GotoSection("extension");
    database_.GotoSecNextEntry();
    ASSERT_EQ(database_.GotoSection("extension"), 1);
    EXPECT_EQ(rest_of_section().size(), 3U);
}

TEST_F(MultiSectionFileTest, RestartSectionMovesTheCursorBeforeTheFirstEntry) {
    database_.GotoSection("extension");
    rest_of_section();
    database_.RestartSection();
    EXPECT_EQ(current_value(), "");
    EXPECT_EQ(rest_of_section().size(), 3U);
}

TEST_F(MultiSectionFileTest, EmptySectionHasNoEntries) {
    ASSERT_EQ(database_.GotoSection("empty"), 1);
    EXPECT_EQ(database_.GotoSecNextEntry(), 0);
    EXPECT_EQ(database_.GotoSecEntry("user_name"), 0);
}

TEST_F(MultiSectionFileTest, LookUpMovesToTheFirstEntryOfThatKeyWhereverTheCursorWas) {
    ASSERT_EQ(database_.GotoSection("admin"), 1);
    ASSERT_EQ(database_.GotoSecEntry("password"), 1);
    EXPECT_EQ(current_value(), "pa#ss");
    ASSERT_EQ(database_.GotoSecEntry("user_name"), 1);
    EXPECT_EQ(current_value(), "admin");
    EXPECT_EQ(rest_of_section(), (Entries{{"password", "pa#ss"}, {"password", "other"}}));
}

TEST_F(MultiSectionFileTest, LookUpOfAnAbsentKeyGivesZero) {
    ASSERT_EQ(database_.GotoSection("admin"), 1);
    for (const char* key : {"Password", "pass", "passwords", "", "a"}) {
        EXPECT_EQ(database_.GotoSecEntry(key), 0) << key;
    }
}

TEST_F(MultiSectionFileTest, NoSectionIsCurrentAfterAFailedSearchOrARestart) {
    database_.GotoSection("admin");
    EXPECT_EQ(database_.GotoSection("trunk"), 0);
    EXPECT_EQ(database_.GotoSecNextEntry(), 0);
    EXPECT_EQ(database_.GotoSecEntry("password"), 0);
    database_.GotoSection("admin");
    database_.GotoSecNextEntry();
    database_.Restart();
    EXPECT_EQ(current_value(), "");
    EXPECT_EQ(database_.GotoSecNextEntry(), 0);
}

TEST_F(MultiSectionFileTest, TextsAreCutToTheGivenSizesAndAlwaysTerminated) {
    database_.GotoSection("admin");
    ASSERT_EQ(database_.GotoSecEntry("user_name"), 1);
    const std::vector<std::pair<unsigned, std::string>> sizes = {
        {1, ""}, {2, "a"}, {5, "admi"}, {6, "admin"}, {7, "admin"}};
    for (const auto& [size, expected] : sizes) {
        std::array<char, 8> value{};
        value.fill('x');
        database_.GetSecCurrentEntry(nullptr, 0, value.data(), size);
        EXPECT_STREQ(value.data(), expected.c_str());
        EXPECT_TRUE(std::all_of(value.begin() + size, value.end(), [](char c) { return c == 'x'; }))
            << "written past a buffer of " << size;
    }
}

TEST_F(MultiSectionFileTest, EitherTextMayBeOmitted) {
    database_.GotoSection("admin");
    database_.GotoSecEntry("user_name");
    std::array<char, 16> buffer{};
    database_.GetSecCurrentEntry(buffer.data(), buffer.size(), nullptr, 0);
    EXPECT_STREQ(buffer.data(), "user_name");
    buffer.fill('x');
    database_.GetSecCurrentEntry(buffer.data(), 0, nullptr, 0);
    EXPECT_EQ(buffer[0], 'x');
}

TEST_F(MultiSectionFileTest, LongerTextThanASmartBufferIsCutToFit) {
    const std::string path =
        folder_.write("long", "section a {\nk=" + std::string(5000, 'v') + "\n}\n");
    auto database = open(path);
    ASSERT_EQ(database.GotoSection("a"), 1);
    ASSERT_EQ(database.GotoSecEntry("k"), 1);
    const SmartBuffer value;
    database.GetSecCurrentEntry(nullptr, 0, value.data, value.size);
    EXPECT_EQ(std::string(value.data), std::string(4095, 'v'));
}

TEST_F(MultiSectionFileTest, AssignmentAndCommentAreTheFirstCharactersOfTheirTexts) {
    const std::string path = folder_.write("other", "<a>\nk:v=1 ; c\n</a>\nitem b [\nk:v=1 ; c\n]");
    Configuration::MultiSectionFile file(path.c_str(), true, true, true, "item", "[\n", "]\n", ":",
                                         ";", "anything");
    ASSERT_EQ(file.GotoSection("b"), 1);
    ASSERT_EQ(file.GotoSecEntry("k"), 1);
    std::array<char, 8> value{};
    file.GetSecCurrentEntry(nullptr, 0, value.data(), value.size());
    EXPECT_STREQ(value.data(), "v=1");
}

TEST_F(MultiSectionFileTest, UnreadableFileThrowsAnErrorThatNamesPathAndReason) {
    const std::vector<std::pair<std::string, std::string>> paths = {
        {folder_.path("missing"), "No such file or directory"},
        {folder_.path(), "Is a directory"},
    };
    for (const auto& [path, reason] : paths) {
        try {
            open(path);
            ADD_FAILURE() << path << " was read";
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), path + ": " + reason);
        }
    }
}

TEST_F(MultiSectionFileTest, TextIsWipedBeforeItIsReleased) {
    constexpr const char* SECRET = "correct horse battery staple";
    const std::string path = folder_.write("secret", "password = "s + SECRET + "\n");
    const FreedMemory freed(SECRET);
    open(path);
    EXPECT_EQ(freed.copies_of_secret(), 0);
}

}  // namespace
