#include "catalogue/extension_database.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "tests/unit/temporary_folder.h"

namespace {

constexpr const char* DATABASE = R"(# all kinds, but not in the order in which they are searched
section trunk {
    a = trunk1
}
section paging {
    a = hall
}
section extension {
    a = 201
    201b = Reception Desk
    c =
    # d = 299
    e = 203 # the porter
    f = "204"
}
g = 205
section attendant
{
    a = day
}
section callpark {
    a = park1
    b = park2
}
section pickup {
    a = group1
}
section extension {
    a = 999
}
)";

class ExtensionDatabaseTest : public testing::Test {
  protected:
    ExtensionDatabaseTest() {
        setenv("TARN_PATH", (folder_.path() + "/").c_str(), 1);
        write(DATABASE);
    }
    ~ExtensionDatabaseTest() override { unsetenv("TARN_PATH"); }

    void write(const std::string& text) const {
        static_cast<void>(folder_.write("telephony/extensiondb", text));
    }

    TemporaryFolder folder_;
};

TEST_F(ExtensionDatabaseTest, FindsTheValuesOfAllFiveKinds) {
    for (const char* name : {"day", "201", "Reception Desk", "203", "\"204\"", "group1", "park1",
                             "park2", "hall", ""}) {
        EXPECT_EQ(extension_exists(name), 1) << name;
    }
}

TEST_F(ExtensionDatabaseTest, FindsNameListedUnderTheLastKindOnly) {
    write("section paging {\na = 7\n}\n");
    EXPECT_EQ(extension_exists("7"), 1);
}

TEST_F(ExtensionDatabaseTest, KeyIsNotAnExtension) {
    for (const char* name : {"a", "201b", "f"}) {
        EXPECT_EQ(extension_exists(name), 0) << name;
    }
}

TEST_F(ExtensionDatabaseTest, NamesAreComparedWholeAndCaseSensitively) {
    for (const char* name : {"DAY", "Hall", "20", "2011", "201 ", " 201", "Reception", "204"}) {
        EXPECT_EQ(extension_exists(name), 0) << name;
    }
}

TEST_F(ExtensionDatabaseTest, OtherSectionsCommentsAndSecondSectionsOfAKindDoNotCount) {
    for (const char* name : {"trunk1", "299", "999", "205"}) {
        EXPECT_EQ(extension_exists(name), 0) << name;
    }
}

TEST_F(ExtensionDatabaseTest, WithoutAnySectionHasNoExtensions) {
    write("");
    EXPECT_EQ(extension_exists("201"), 0);
    EXPECT_EQ(extension_exists(""), 0);
}

TEST_F(ExtensionDatabaseTest, IsReadAnewAtEveryCall) {
    ASSERT_EQ(extension_exists("301"), 0);
    write("section extension {\na = 301\n}\n");
    EXPECT_EQ(extension_exists("301"), 1);
    EXPECT_EQ(extension_exists("201"), 0);
}

TEST_F(ExtensionDatabaseTest, DirectoryIsUsedWithoutAddingASlash) {
    setenv("TARN_PATH", folder_.path().c_str(), 1);
    EXPECT_THROW(extension_exists("201"), std::runtime_error);
    setenv("TARN_PATH", folder_.path("prefix_").c_str(), 1);
    static_cast<void>(folder_.write("prefix_telephony/extensiondb", "section paging {\na=8\n}"));
    EXPECT_EQ(extension_exists("8"), 1);
}

TEST_F(ExtensionDatabaseTest, EmptyDirectoryIsTheCurrentOne) {
    setenv("TARN_PATH", "", 1);
    ASSERT_EQ(chdir(folder_.path().c_str()), 0);
    EXPECT_EQ(extension_exists("201"), 1);
    ASSERT_EQ(chdir("/"), 0);
    EXPECT_THROW(extension_exists("201"), std::runtime_error);
}

TEST_F(ExtensionDatabaseTest, UnreadableDatabaseThrowsAnErrorThatNamesIt) {
    setenv("TARN_PATH", "/nowhere/", 1);
    try {
        extension_exists("201");
        ADD_FAILURE() << "no error";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "/nowhere/telephony/extensiondb: No such file or directory");
    }
}

}  // namespace
