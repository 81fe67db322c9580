#include "console/secret.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "tests/unit/freed_memory.h"

namespace {

constexpr const char* SECRET = "correct horse battery staple";

TEST(Wipe, OverwritesTheTextAndItsSpareCapacity) {
    std::string secret = "a long secret that does not fit the string object itself";
    const std::size_t length = secret.size();
    const char* storage = secret.data();
    secret.resize(10);
    wipe(secret);
    EXPECT_EQ(secret, "");
    ASSERT_EQ(secret.data(), storage) << "the secret was copied to other storage";
    ASSERT_GE(secret.capacity(), length);
    EXPECT_TRUE(std::all_of(storage, storage + length, [](char c) { return c == '\0'; }));
}

TEST(Wipe, OverwritesAShortSecretToo) {
    std::string secret = "pw";
    wipe(secret);
    EXPECT_EQ(secret, "");
    EXPECT_EQ(secret.data()[1], '\0');
}

TEST(SecretTest, ContainsTheTextGivenAndAppended) {
    Secret secret("user");
    EXPECT_EQ(secret.append(":").append("password").view(), "user:password");
    EXPECT_EQ(Secret().view(), "");
}

TEST(SecretTest, MovesItsText) {
    Secret secret(SECRET);
    const Secret moved = std::move(secret);
    EXPECT_EQ(moved.view(), SECRET);
}

TEST(SecretTest, LeavesNoCopyWhenItGrowsOrIsDestroyed) {
    const FreedMemory freed(SECRET);
    {
        Secret secret(SECRET);
        for (int i = 0; i < 100; ++i) {
            secret.append(" and more");
        }
        EXPECT_EQ(secret.view().size(), std::strlen(SECRET) + 900);
    }
    EXPECT_EQ(freed.copies_of_secret(), 0);
}

TEST(SecretTest, ShortTextIsWipedWithinTheObject) {
    alignas(Secret) unsigned char storage[sizeof(Secret)];
    auto* secret = new (storage) Secret("pass");
    secret->~Secret();
    const std::string bytes(reinterpret_cast<const char*>(storage), sizeof storage);
    EXPECT_EQ(bytes.find("pass"), std::string::npos);
}

}  // namespace
