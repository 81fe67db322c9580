#include <gtest/gtest.h>

#include <cstdio>

#include "console/line_editor.h"

// Standard output is buffered as in the program, so that a test sees the same flushes with and
// without a terminal.
int main(int argc, char** argv) {
    prepare_streams();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
