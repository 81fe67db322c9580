#include <gtest/gtest.h>

#include <cstdio>

// Standard output is buffered as in the program, so that a test sees the same flushes with and
// without a terminal.
int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
