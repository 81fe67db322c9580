#include "backup/backup.h"

#include <string>

#include "tests/unit/capture.h"
#include "tests/unit/freed_memory.h"
#include "tests/unit/outside.h"

namespace {

class BackupTest : public OutsideTest {};

TEST_F(BackupTest, WithoutAClockEndsAtOnceAndSilently) {
    outside.clock_works = false;
    EXPECT_EQ(captured_output([] { EXPECT_EQ(handle_backup(nullptr), 1); }), "");
    EXPECT_TRUE(outside.prompts.empty());
    EXPECT_TRUE(outside.command_lines.empty());
}

TEST_F(BackupTest, TransferThatFindsNoMemoryFailsAndRunsNothing) {
    for (const auto handler : {handle_backup, handle_restore}) {
        const std::string screen = captured_output([&] {
            const NoMemory none;
            EXPECT_EQ(handler(nullptr), 0);
        });
        EXPECT_NE(screen.find(" failed"), std::string::npos) << screen;
    }
    EXPECT_TRUE(outside.command_lines.empty());
}

}  // namespace
