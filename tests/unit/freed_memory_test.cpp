#include "tests/unit/freed_memory.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "console/secret.h"

namespace {

constexpr const char* SECRET = "correct horse battery staple";

TEST(FreedMemory, FindsASecretLeftInABlockButNotAWipedOne) {
    const FreedMemory freed(SECRET);
    {
        std::string text = std::string("the secret: ") + SECRET;
        wipe(text);
    }
    const int before = freed.copies_of_secret();
    {
        const std::string text = SECRET;
    }
    EXPECT_EQ(freed.copies_of_secret(), before + 1);
}

}  // namespace
