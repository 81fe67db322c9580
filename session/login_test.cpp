#include "session/login.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tests/unit/freed_memory.h"

namespace {

// Nobody has these names, whatever the access database contains.
TEST(Credentials, AreWipedAfterUse) {
    constexpr const char* SECRET = "correct horse battery staple";
    std::string user = SECRET;
    std::string password = SECRET;
    const FreedMemory freed(SECRET);
    EXPECT_EQ(check_admin_credentials(std::move(user), std::move(password)), 0);
    EXPECT_EQ(freed.copies_of_secret(), 0);
}

}  // namespace
