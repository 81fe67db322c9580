#include "logs/logs.h"

#include <string>
#include <utility>
#include <vector>

#include "tests/unit/capture.h"
#include "tests/unit/outside.h"

namespace {

class LogsTest : public OutsideTest {
  protected:
    static std::string show(std::string argument, int expected_result) {
        return captured_output([&] { EXPECT_EQ(handle_show(argument.data()), expected_result); });
    }
};

TEST_F(LogsTest, ListNamesTheLogsInTheirFixedOrderWhateverTheArgument) {
    for (std::string argument : {"", "sip", "a b"}) {
        EXPECT_EQ(captured_output([&] { EXPECT_EQ(handle_log_ls(argument.data()), 0); }),
                  "\ncm\nsip\nsip_reg\nQ.931\n\n");
    }
    EXPECT_TRUE(outside.command_lines.empty());
}

TEST_F(LogsTest, ShowPassesTheLogOfThatNameToCatAndPrintsNothingItself) {
    const std::vector<std::pair<std::string, std::string>> logs = {
        {"cm", "cat /var/log/cm.log"},
        {"sip", "cat /tmp/logs/sip_ua.log"},
        {"sip_reg", "cat /tmp/logs/sip_reg.log"},
        {"Q.931", "cat /tmp/logs/isdnagent.log"},
    };
    for (const auto& [name, command] : logs) {
        outside.command_lines.clear();
        EXPECT_EQ(show(name, 0), "");
        EXPECT_EQ(outside.command_lines, std::vector<std::string>{command});
    }
}

TEST_F(LogsTest, ShowSucceedsWhateverTheStatusOfCat) {
    outside.command_status = 256;
    EXPECT_EQ(show("cm", 0), "");
}

TEST_F(LogsTest, ShowWithoutANameGivesTheSyntaxAndRunsNothing) {
    for (const char* argument : {"", " ", "\t \t"}) {
        EXPECT_EQ(show(argument, -1), "ERROR: the syntax is: show log_type\n");
    }
    EXPECT_TRUE(outside.command_lines.empty());
}

TEST_F(LogsTest, ShowRefusesEverythingButAWholeNameAndRunsNothing) {
    for (const char* argument : {"q.931", "SIP", "sip extra", "sip_re", "si", "sips", "Q", "Qx931",
                                 "/etc/passwd", "cm; reboot", "$(reboot)", "*", " sip"}) {
        EXPECT_EQ(show(argument, -1), "ERROR: There is no such log file\n") << argument;
    }
    EXPECT_TRUE(outside.command_lines.empty());
}

TEST_F(LogsTest, BlanksAfterTheNameAreDropped) {
    EXPECT_EQ(show("sip \t", 0), "");
    EXPECT_EQ(outside.command_lines, std::vector<std::string>{"cat /tmp/logs/sip_ua.log"});
}

}  // namespace
