#include "config/multi_section_config_file.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/config_buffer.h"
#include "tests/unit/temporary_folder.h"

namespace {

constexpr const char* MENU = R"(# the menu
ITEM /cgi-bin/sip.cgi {
    ACL = auto
    CAP = "SIP settings" # shown
}
ITEM forward.cgi
{
    ACL = auto,extension
    ACL = admin
    CAP = Call forwarding
}
ITEM {
)";

class MultiSectionConfigFileTest : public testing::Test {
  protected:
    MultiSectionConfigFileTest() { menu_.ChangeSectionSyntax("ITEM", "{\n", "}\n"); }

    std::vector<std::string> headers() {
        std::vector<std::string> headers;
        menu_.Restart();
        while (menu_.GotoNextSection() != 0) {
            headers.push_back(menu_.GetHeaderEntry());
        }
        return headers;
    }

    TemporaryFolder folder_;
    MultiSectionConfigFile menu_{folder_.write("menu", MENU).c_str(), false, false, true};
};

TEST_F(MultiSectionConfigFileTest, CursorVisitsEverySectionInFileOrder) {
    EXPECT_EQ(headers(), (std::vector<std::string>{"/cgi-bin/sip.cgi", "forward.cgi", ""}));
}

TEST_F(MultiSectionConfigFileTest, RestartMovesTheCursorBeforeTheFirstSection) {
    const auto first = headers();
    EXPECT_EQ(headers(), first);
    menu_.Restart();
    EXPECT_EQ(menu_.GotoNextSection(), 1);
    menu_.Restart();
    EXPECT_EQ(menu_.GetHeaderEntry(), "");
    EXPECT_EQ(menu_.GetSectionEntry("ACL"), ConfigBuffer::ENTRY_NOT_FOUND);
    EXPECT_EQ(menu_.GotoNextSection(), 1);
    EXPECT_EQ(menu_.GetHeaderEntry(), "/cgi-bin/sip.cgi");
}

TEST_F(MultiSectionConfigFileTest, EntriesAreThoseOfTheCurrentSection) {
    menu_.Restart();
    ASSERT_EQ(menu_.GotoNextSection(), 1);
    EXPECT_EQ(menu_.GetSectionEntry("ACL"), "auto");
    EXPECT_EQ(menu_.GetSectionEntry("CAP"), "\"SIP settings\"");
    ASSERT_EQ(menu_.GotoNextSection(), 1);
    EXPECT_EQ(menu_.GetSectionEntry("CAP"), "Call forwarding");
    ASSERT_EQ(menu_.GotoNextSection(), 1);
    EXPECT_EQ(menu_.GetSectionEntry("CAP"), "ENTRY_NOT_FOUND");
}

TEST_F(MultiSectionConfigFileTest, OfEqualKeysTheFirstWinsAndKeysAreMatchedExactly) {
    menu_.Restart();
    menu_.GotoNextSection();
    menu_.GotoNextSection();
    EXPECT_EQ(menu_.GetSectionEntry("ACL"), "auto,extension");
    EXPECT_EQ(menu_.GetSectionEntry("acl"), "ENTRY_NOT_FOUND");
    EXPECT_EQ(menu_.GetSectionEntry("AC"), "ENTRY_NOT_FOUND");
}

TEST_F(MultiSectionConfigFileTest, NoSectionIsCurrentAfterTheLastOne) {
    MultiSectionConfigFile file(folder_.write("file", "section a {\nk=v\n}\n").c_str(), false,
                                false, false);
    ASSERT_EQ(file.GotoNextSection(), 1);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(file.GotoNextSection(), 0);
        EXPECT_EQ(file.GetHeaderEntry(), "");
        EXPECT_EQ(file.GetSectionEntry("k"), "ENTRY_NOT_FOUND");
    }
}

TEST_F(MultiSectionConfigFileTest, KeywordIsSectionAndMarksAreBracesUntilChanged) {
    const std::string path = folder_.write("file", "ITEM a {\n}\nsection b {\n}\nk=v\n");
    MultiSectionConfigFile file(path.c_str(), false, false, false);
    ASSERT_EQ(file.GotoNextSection(), 1);
    EXPECT_EQ(file.GetHeaderEntry(), "b");
    EXPECT_EQ(file.GetSectionEntry("k"), "ENTRY_NOT_FOUND");
    EXPECT_EQ(file.GotoNextSection(), 0);
}

TEST_F(MultiSectionConfigFileTest, MissingFileOrDirectoryHasNoSections) {
    for (const std::string& path : {folder_.path("missing"), folder_.path()}) {
        MultiSectionConfigFile file(path.c_str(), false, false, true);
        file.ChangeSectionSyntax("ITEM", "{\n", "}\n");
        file.Restart();
        EXPECT_EQ(file.GotoNextSection(), 0) << path;
    }
}

TEST_F(MultiSectionConfigFileTest, OptionsChangeNothing) {
    const std::string path = folder_.write("file", "section a {\nk=v\n}\n");
    for (int options = 0; options < 8; ++options) {
        MultiSectionConfigFile file(path.c_str(), (options & 1) != 0, (options & 2) != 0,
                                    (options & 4) != 0);
        ASSERT_EQ(file.GotoNextSection(), 1);
        EXPECT_EQ(file.GetSectionEntry("k"), "v");
    }
}

}  // namespace
