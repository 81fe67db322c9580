#include "console/process.h"

#include <string>
#include <vector>

#include "console/text.h"
#include "tests/unit/capture.h"
#include "tests/unit/outside.h"

namespace {

class ProcessTest : public OutsideTest {};

TEST_F(ProcessTest, CommandLineIsPassedOnUnchangedAndItsStatusReturned) {
    outside.command_status = 256;
    EXPECT_EQ(run_command("echo \"$HOME\" | cat"), 256);
    outside.command_status = 0;
    EXPECT_EQ(run_command("reboot"), 0);
    EXPECT_EQ(outside.command_lines, (std::vector<std::string>{"echo \"$HOME\" | cat", "reboot"}));
}

TEST_F(ProcessTest, OutputIsFlushedBeforeTheCommandStarts) {
    captured_output([] {
        print("Starting...\n");
        run_command("reboot");
    });
    EXPECT_EQ(outside.printed_before, "Starting...\n");
}

}  // namespace
