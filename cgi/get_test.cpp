#include "cgi/get.h"

#include <cstdlib>
#include <string>
#include <vector>

#include "console/state.h"
#include "tests/unit/capture.h"
#include "tests/unit/outside.h"
#include "tests/unit/temporary_folder.h"

namespace {

constexpr const char* SYNTAX = "ERROR: the syntax is: get configuration_part [extension_name]\n";
constexpr const char* NO_PART = "ERROR: There is no such configuration part\n";
constexpr const char* NO_EXTENSION = "ERROR: There is no such an extension\n";

// The client never starts here, so only the heading of a part is printed.
class GetTest : public OutsideTest {
  protected:
    GetTest() {
        outside.client_can_start = false;
        _gAdminConParts = {{"sip", "SIP settings"}, {"both", "General"}};
        _gExtensionConfParts = {{"forward", "Call forwarding"}, {"both", "Of an extension"}};
        setenv("TARN_PATH", (folder_.path() + "/").c_str(), 1);
        static_cast<void>(folder_.write("telephony/extensiondb",
                                        "section extension {\na = 201\nb = Reception Desk\n}\n"));
    }
    ~GetTest() override { unsetenv("TARN_PATH"); }

    static std::string get(std::string argument, int expected_result) {
        return captured_output([&] { EXPECT_EQ(handle_get(argument.data()), expected_result); });
    }
    static std::string requested() {
        return outside.clients.empty() ? "" : outside.clients.back().request["QUERY_STRING"];
    }

    TemporaryFolder folder_;
};

TEST_F(GetTest, WithoutAPartGivesTheSyntax) {
    for (const char* argument : {"", " ", "   ", "\t", " \t \t"}) {
        EXPECT_EQ(get(argument, -1), SYNTAX);
    }
    EXPECT_EQ(requested(), "");
}

TEST_F(GetTest, GeneralPartIsGeneratedBelowItsHeading) {
    EXPECT_EQ(get("sip", 0), "\nSIP settings\n\n");
    EXPECT_EQ(requested(),
              "cgiaction=Start generating a legible configuration file&parampattern=sip");
}

TEST_F(GetTest, ExtensionPartIsGeneratedBelowItsHeading) {
    EXPECT_EQ(get("forward 201", 0), "\nCall forwarding for extension 201\n\n");
    EXPECT_EQ(requested(),
              "cgiaction=Start generating a legible configuration file"
              "&cgiDescription=Call forwarding&extensionName=201");
}

TEST_F(GetTest, TextAfterTheFirstBlankIsTheExtensionsName) {
    EXPECT_EQ(get("forward Reception Desk", 0),
              "\nCall forwarding for extension Reception Desk\n\n");
    EXPECT_EQ(get("forward Reception  Desk", -1), NO_EXTENSION);
    EXPECT_EQ(get("forward  201", -1), NO_EXTENSION) << "two blanks: the name begins with a blank";
    EXPECT_EQ(get("forward 201 202", -1), NO_EXTENSION);
}

TEST_F(GetTest, TabSeparatesNothing) {
    EXPECT_EQ(get("forward\t201", -1), NO_PART);
    _gAdminConParts.emplace("a\tb", "Tabbed");
    EXPECT_EQ(get("a\tb", 0), "\nTabbed\n\n");
}

TEST_F(GetTest, UnknownPartIsRefused) {
    for (const char* argument : {"nothing", "SIP", "si", "sips", "nothing 201", "SIP 201"}) {
        EXPECT_EQ(get(argument, -1), NO_PART) << argument;
    }
    EXPECT_EQ(requested(), "");
}

TEST_F(GetTest, PartOfTheOtherCatalogueIsRefused) {
    EXPECT_EQ(get("forward", -1), NO_PART);
    EXPECT_EQ(get("sip 201", -1), NO_PART);
    EXPECT_EQ(requested(), "");
}

TEST_F(GetTest, PartOfBothCataloguesIsTheExtensionPartOnlyWithAnExtension) {
    EXPECT_EQ(get("both", 0), "\nGeneral\n\n");
    EXPECT_EQ(get("both 201", 0), "\nOf an extension for extension 201\n\n");
}

TEST_F(GetTest, UnknownExtensionIsRefused) {
    for (const char* argument : {"forward 202", "forward 20", "forward a", "both 202"}) {
        EXPECT_EQ(get(argument, -1), NO_EXTENSION) << argument;
    }
    EXPECT_EQ(requested(), "");
}

TEST_F(GetTest, UnreadableExtensionDatabaseCountsAsEmpty) {
    setenv("TARN_PATH", "/nowhere/", 1);
    EXPECT_EQ(get("forward 201", -1), NO_EXTENSION);
    EXPECT_EQ(get("nothing 201", -1), NO_PART) << "the database is not read";
    EXPECT_EQ(get("sip", 0), "\nSIP settings\n\n");
}

// A blank that the command loop would have trimmed.
TEST_F(GetTest, TrailingBlankMeansNoExtensionAndLeadingBlankNoPart) {
    EXPECT_EQ(get("sip ", 0), "\nSIP settings\n\n");
    EXPECT_EQ(get(" sip", -1), NO_PART);
}

TEST_F(GetTest, HeadingAndRefusalsAreFlushed) {
    outside.client_can_start = true;
    const auto pieces = captured_pieces([] {
        std::string argument = "sip";
        handle_get(argument.data());
    });
    ASSERT_GE(pieces.size(), 2U);
    EXPECT_EQ(pieces.front(), "\nSIP settings\n\n");
    EXPECT_EQ(pieces.back(), "\n\n");
    EXPECT_EQ(captured_pieces([] {
                  for (std::string argument : {"nothing", "forward 7"}) {
                      handle_get(argument.data());
                  }
              }),
              (std::vector<std::string>{NO_PART, NO_EXTENSION}));
}

}  // namespace
