#include "shell/command_loop.h"

#include <list>
#include <string>
#include <vector>

#include <readline/history.h>

#include "console/state.h"
#include "tests/unit/capture.h"
#include "tests/unit/freed_memory.h"
#include "tests/unit/outside.h"

namespace {

using Lines = std::vector<std::string>;
using Queue = std::list<std::string>;

class CommandLoopTest : public OutsideTest {
  protected:
    CommandLoopTest() { clear_history(); }
    ~CommandLoopTest() override { clear_history(); }

    // Returns what was printed.
    static std::string dispatch(std::string line, int expected_result = 0) {
        return captured_output([&] { EXPECT_EQ(dispatch_line(line.data()), expected_result); });
    }

    static std::string run_session(const Lines& typed) {
        outside.lines.assign(typed.begin(), typed.end());
        return captured_output([] { EXPECT_EQ(run_command_loop(), 0); });
    }

    static Lines history() {
        Lines lines;
        for (int i = 0; i < history_length; ++i) {
            lines.emplace_back(history_get(history_base + i)->line);
        }
        return lines;
    }
};

constexpr const char* NO_MEMORY = "ERROR: Out of memory\n";
constexpr const char* NO_SUCH_LOG = "ERROR: There is no such log file\n";
const std::string HELP_FOR_EXIT = "\nexit\t\tExit tessel.\n\n";

TEST_F(CommandLoopTest, FirstWordThatIsNotACommandIsQueuedAloneAndNothingIsPrinted) {
    for (const char* line : {"a=1", "name = value", "a=1 b=2", "x\ty", "Exit", "EXIT now", "helpx",
                             "exit=1", "a=\xc3\xa4\x01 b"}) {
        EXPECT_EQ(dispatch(line), "") << line;
    }
    EXPECT_EQ(_gQueryString, (Queue{"a=1", "name", "a=1", "x", "Exit", "EXIT", "helpx", "exit=1",
                                    "a=\xc3\xa4\x01"}));
    EXPECT_FALSE(_gDoExit);
}

TEST_F(CommandLoopTest, OnlyBlanksBeforeTheFirstWordAreSkipped) {
    dispatch(" \t a=1 b");
    dispatch("_b=2");
    dispatch("\nc=3\r");
    EXPECT_EQ(_gQueryString, (Queue{"a=1", "_b=2", "\nc=3\r"}));
}

TEST_F(CommandLoopTest, CommandGetsTheRestOfTheLineAfterTheBlanks) {
    EXPECT_EQ(dispatch("help exit"), HELP_FOR_EXIT);
    EXPECT_EQ(dispatch("help   exit"), HELP_FOR_EXIT);
    EXPECT_EQ(dispatch("help\texit"), HELP_FOR_EXIT);
    EXPECT_EQ(dispatch("help \t \texit"), HELP_FOR_EXIT);
    EXPECT_EQ(_gQueryString, Queue{});
}

TEST_F(CommandLoopTest, ArgumentKeepsItsInnerBlanks) {
    EXPECT_EQ(dispatch("help exit  \t now").substr(0, 35), "\nNo commands match `exit  \t now'.  ");
}

TEST_F(CommandLoopTest, ArgumentIsEmptyAfterTheCommandAlone) {
    EXPECT_EQ(dispatch("show", -1), "ERROR: the syntax is: show log_type\n");
    // What follows the line in memory is not part of it.
    EXPECT_EQ(dispatch(std::string("show\0cm", 7), -1), "ERROR: the syntax is: show log_type\n");
}

TEST_F(CommandLoopTest, ResultIsThatOfTheHandler) {
    EXPECT_EQ(dispatch("show nothing", -1), NO_SUCH_LOG);
    EXPECT_EQ(dispatch("show sip", 0), "");
    EXPECT_EQ(outside.command_lines, Lines{"cat /tmp/logs/sip_ua.log"});
}

TEST_F(CommandLoopTest, WordOf256BytesIsQueuedAndALongerOneIsDroppedSilently) {
    const std::string longest(256, 'w');
    EXPECT_EQ(dispatch(longest + "w"), "");
    EXPECT_EQ(_gQueryString, Queue{});
    EXPECT_EQ(dispatch(longest), "");
    EXPECT_EQ(_gQueryString, Queue{longest});
}

TEST_F(CommandLoopTest, LengthLimitAppliesToTheFirstWordOnly) {
    dispatch("abc=1 " + std::string(294, 'w'));
    EXPECT_EQ(_gQueryString, Queue{"abc=1"});
}

TEST_F(CommandLoopTest, DroppedWordTakesNoPlaceInAFullQueue) {
    for (int i = 1; i <= 100; ++i) {
        dispatch("w" + std::to_string(i));
    }
    dispatch(std::string(257, 'w'));
    EXPECT_EQ(_gQueryString.size(), 100U);
    EXPECT_EQ(_gQueryString.front(), "w1");
}

TEST_F(CommandLoopTest, OldestOfMoreThan100SettingsIsDropped) {
    Queue expected;
    for (int i = 1; i <= 101; ++i) {
        EXPECT_EQ(dispatch("w" + std::to_string(i)), "");
        expected.push_back("w" + std::to_string(i));
        if (i == 100) {
            EXPECT_EQ(_gQueryString, expected) << "a queue of 100 is whole";
        }
    }
    expected.pop_front();
    EXPECT_EQ(_gQueryString, expected);
}

TEST_F(CommandLoopTest, QueueSurvivesEveryCommandButSave) {
    dispatch("a=1");
    for (const char* line : {"help", "list", "log_ls", "get nothing", "show nothing", "exit"}) {
        captured_output([&] {
            std::string writable = line;
            dispatch_line(writable.data());
        });
    }
    EXPECT_EQ(_gQueryString, Queue{"a=1"});
}

TEST_F(CommandLoopTest, SessionPromptsUntilTheInputEndsAndLogsOutOnce) {
    EXPECT_EQ(run_session({"a=1", "b=2"}), "");
    EXPECT_EQ(outside.prompts, Lines(3, "tessel:> "));
    EXPECT_EQ(_gQueryString, (Queue{"a=1", "b=2"}));
    ASSERT_EQ(outside.clients.size(), 1U);
    EXPECT_EQ(outside.clients[0].request["PATH_INFO"], "logout.cgi");
    EXPECT_FALSE(_gDoExit);
}

TEST_F(CommandLoopTest, ExitEndsTheSessionAndLogsOutOnce) {
    EXPECT_EQ(run_session({"a=1", " exit now ", "b=2"}), "");
    EXPECT_EQ(outside.prompts.size(), 2U);
    EXPECT_EQ(_gQueryString, Queue{"a=1"});
    ASSERT_EQ(outside.clients.size(), 1U);
    EXPECT_EQ(outside.clients[0].request["PATH_INFO"], "logout.cgi");
}

TEST_F(CommandLoopTest, SessionAskedToEndOnlyLogsOut) {
    _gDoExit = true;
    EXPECT_EQ(run_session({"a=1"}), "");
    EXPECT_EQ(outside.prompts, Lines{});
    EXPECT_EQ(outside.clients.size(), 1U);
}

TEST_F(CommandLoopTest, FailedCommandDoesNotEndTheSession) {
    EXPECT_EQ(run_session({"show nothing", "help exit"}), NO_SUCH_LOG + HELP_FOR_EXIT);
    EXPECT_EQ(outside.prompts.size(), 3U);
}

TEST_F(CommandLoopTest, LineIsTrimmedBeforeItIsRememberedAndRun) {
    EXPECT_EQ(run_session({"   help exit \t  ", "\ta=1  b=2 "}), HELP_FOR_EXIT);
    EXPECT_EQ(history(), (Lines{"help exit", "a=1  b=2"}));
    EXPECT_EQ(_gQueryString, Queue{"a=1"});
}

TEST_F(CommandLoopTest, EmptyLinesAndLinesOfBlanksChangeNothing) {
    EXPECT_EQ(run_session({"", "   ", "\t", " \t \t "}), "");
    EXPECT_EQ(history(), Lines{});
    EXPECT_EQ(_gQueryString, Queue{});
    EXPECT_EQ(outside.prompts.size(), 5U);
}

TEST_F(CommandLoopTest, CommandThatFindsNoMemoryIsRefused) {
    _gAdminConParts = {{"telephony_over_the_network", "Telephony"}};
    _gQueryString = {"a=1"};
    for (std::string line :
         {"get telephony_over_the_network", "save", "show cm", "show nothing_of_it"}) {
        EXPECT_EQ(captured_output([&] {
                      const NoMemory none;
                      EXPECT_EQ(dispatch_line(line.data()), -1);
                  }),
                  NO_MEMORY)
            << line;
    }
    EXPECT_EQ(_gQueryString, Queue{"a=1"});
    EXPECT_TRUE(outside.clients.empty());
}

TEST_F(CommandLoopTest, SettingThatFindsNoMemoryIsRefusedAndTheOthersStay) {
    for (int i = 1; i <= 100; ++i) {
        dispatch("w" + std::to_string(i));
    }
    std::string line = "w101";
    EXPECT_EQ(captured_output([&] {
                  const NoMemory none;
                  EXPECT_EQ(dispatch_line(line.data()), -1);
              }),
              NO_MEMORY);
    EXPECT_EQ(_gQueryString.size(), 100U);
    EXPECT_EQ(_gQueryString.front(), "w1");
}

TEST_F(CommandLoopTest, ListAndHelpNeedNoMemory) {
    _gAdminConParts = {{"telephony_over_the_network", "Telephony over the network"}};
    for (std::string line : {"list", "help", "help exit", "help nothing", "log_ls"}) {
        const std::string usual = dispatch(line);
        EXPECT_EQ(captured_output([&] {
                      const NoMemory none;
                      EXPECT_EQ(dispatch_line(line.data()), 0);
                  }),
                  usual);
    }
}

}  // namespace
