#include "catalogue/list.h"

#include <string>
#include <vector>

#include "console/state.h"
#include "tests/unit/capture.h"
#include "tests/unit/outside.h"

namespace {

constexpr const char* GENERAL = "\n*** General configuration parts ***\n\n";
constexpr const char* EXTENSION = "\n*** Extension configuration parts ***\n\n";

class ListTest : public OutsideTest {
  protected:
    static std::string list(std::string argument = "") {
        return captured_output([&] { EXPECT_EQ(handle_list(argument.data()), 0); });
    }
};

TEST_F(ListTest, OfEmptyCataloguesIsTheTwoHeadingsAndALineFeed) {
    EXPECT_EQ(list(),
              "\n*** General configuration parts ***\n\n"
              "\n*** Extension configuration parts ***\n\n"
              "\n");
}

TEST_F(ListTest, PrintsNameAndCaptionOfEveryPartUnderItsHeading) {
    _gAdminConParts = {{"callforward", "Call forwarding"}, {"sip", "sip"}, {"", ""}};
    _gExtensionConfParts = {{"sip", "Line"}};
    EXPECT_EQ(list(), std::string(GENERAL) +
                          " ()\n"
                          "callforward (Call forwarding)\n"
                          "sip (sip)\n" +
                          EXTENSION + "sip (Line)\n\n");
}

TEST_F(ListTest, NamesAreInByteOrder) {
    for (const char* name : {"b", "a", "B", "1", "ab", "\xc3\xa4", "_", "a-"}) {
        _gAdminConParts.emplace(name, "c");
        _gExtensionConfParts.emplace(name, "d");
    }
    EXPECT_EQ(list(), std::string(GENERAL) +
                          "1 (c)\nB (c)\n_ (c)\na (c)\na- (c)\nab (c)\nb (c)\n\xc3\xa4 (c)\n" +
                          EXTENSION +
                          "1 (d)\nB (d)\n_ (d)\na (d)\na- (d)\nab (d)\nb (d)\n\xc3\xa4 (d)\n\n");
}

TEST_F(ListTest, ArgumentChangesNothing) {
    _gAdminConParts = {{"a", "b"}};
    const std::string expected = list();
    EXPECT_EQ(list("extension"), expected);
    EXPECT_EQ(list("a b"), expected);
}

TEST_F(ListTest, FlushesEveryHeadingAndEveryLine) {
    _gAdminConParts = {{"a", "b"}, {"c", "d"}};
    _gExtensionConfParts = {{"e", "f"}};
    EXPECT_EQ(
        captured_pieces([] { handle_list(nullptr); }),
        (std::vector<std::string>{GENERAL, "a (b)\n", "c (d)\n", EXTENSION, "e (f)\n", "\n"}));
}

}  // namespace
