#include "shell/command_table.h"

#include <string>
#include <utility>
#include <vector>

#include "backup/backup.h"
#include "catalogue/list.h"
#include "cgi/get.h"
#include "console/state.h"
#include "logs/logs.h"
#include "save/save.h"
#include "tests/unit/capture.h"
#include "tests/unit/outside.h"

namespace {

class CommandTableTest : public OutsideTest {
  protected:
    static std::string help(std::string argument) {
        return captured_output(
            [&] { EXPECT_EQ(lookup_command("help")->handler(argument.data()), 0); });
    }
};

std::string possibilities(const std::string& argument) {
    return "\nNo commands match `" + argument +
           "'.  Possibilties are:\n"
           "list\tget\tsave\texit\thelp\tbackup\t\n"
           "restore\tlog_ls\tshow\t\n"
           "\n";
}

TEST_F(CommandTableTest, HelpWithoutAnArgumentPrintsEveryRowInTableOrder) {
    EXPECT_EQ(help(""),
              "\n"
              "list\t\tShow configuration parts that can be modified.\n"
              "get\t\tGenerate configuration part.\n"
              "save\t\tSave configuration part.\n"
              "exit\t\tExit tessel.\n"
              "help\t\tDisplay the help.\n"
              "backup\t\tBackup and download configuration.\n"
              "restore\t\tUpload configuration.\n"
              "log_ls\t\tDisplay log files that can be viewed.\n"
              "show\t\tShow logfile.\n"
              "\n");
}

TEST_F(CommandTableTest, HelpWithACommandPrintsItsRowOnly) {
    EXPECT_EQ(help("get"), "\nget\t\tGenerate configuration part.\n\n");
    EXPECT_EQ(help("show"), "\nshow\t\tShow logfile.\n\n");
}

TEST_F(CommandTableTest, HelpWithAnythingElsePrintsThePossibilitiesSixToALine) {
    for (const char* argument : {"HELP", "Get", "ge", "gets", "get save", " get", "%s%n", "'"}) {
        EXPECT_EQ(help(argument), possibilities(argument));
    }
}

TEST_F(CommandTableTest, HelpLeavesTheQueueAndTheSessionAsTheyAre) {
    _gQueryString = {"a=1"};
    help("nothing");
    EXPECT_EQ(_gQueryString, std::list<std::string>{"a=1"});
    EXPECT_FALSE(_gDoExit);
}

TEST_F(CommandTableTest, RowsAreInTheirFixedOrderAndEndWithARowOfNulls) {
    const std::vector<std::pair<std::string, CommandHandler>> rows = {
        {"list", handle_list},     {"get", handle_get},       {"save", handle_save},
        {"exit", nullptr},  // private to the table, and so is help
        {"help", nullptr},         {"backup", handle_backup}, {"restore", handle_restore},
        {"log_ls", handle_log_ls}, {"show", handle_show},
    };
    const CommandEntry* row = commands;
    for (const auto& [name, handler] : rows) {
        ASSERT_EQ(row->name, name);
        ASSERT_NE(row->handler, nullptr);
        if (handler != nullptr) {
            EXPECT_EQ(row->handler, handler) << name;
        }
        ++row;
    }
    EXPECT_EQ(row->name, nullptr);
    EXPECT_EQ(row->handler, nullptr);
    EXPECT_EQ(row->doc, nullptr);
}

TEST_F(CommandTableTest, LookUpFindsEveryRowByItsWholeName) {
    for (const CommandEntry* row = commands; row->name != nullptr; ++row) {
        EXPECT_EQ(lookup_command(row->name), row);
    }
    for (const char* word : {"", "EXIT", "Help", "exi", "exits", " exit", "lis", "log", "a=1"}) {
        EXPECT_EQ(lookup_command(word), nullptr) << word;
    }
}

TEST_F(CommandTableTest, ExitEndsTheSessionWhateverItsArgument) {
    for (std::string argument : {"", "now", "0 1 2"}) {
        _gDoExit = false;
        EXPECT_EQ(captured_output(
                      [&] { EXPECT_EQ(lookup_command("exit")->handler(argument.data()), 0); }),
                  "");
        EXPECT_TRUE(_gDoExit) << argument;
    }
}

}  // namespace
