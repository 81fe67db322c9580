#include "backup/backup.h"

#include "tests/unit/capture.h"
#include "tests/unit/outside.h"

namespace {

class BackupTest : public OutsideTest {};

TEST_F(BackupTest, WithoutAClockEndsAtOnceAndSilently) {
    outside.clock_works = false;
    EXPECT_EQ(captured_output([] { EXPECT_EQ(handle_backup(nullptr), 1); }), "");
    EXPECT_TRUE(outside.prompts.empty());
    EXPECT_TRUE(outside.command_lines.empty());
}

}  // namespace
