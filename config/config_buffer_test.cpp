#include "config/config_buffer.h"
#include "tests/unit/freed_memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace {

TEST(ConfigBuffer, MarkerContainsNothingThatTheMenuTreeSearchesFor) {
    const std::string marker(ConfigBuffer::ENTRY_NOT_FOUND);
    EXPECT_EQ(marker, "ENTRY_NOT_FOUND");
    for (const char* text : {"\"", "auto", "extension"}) {
        EXPECT_EQ(marker.find(text), std::string::npos) << text;
    }
}

TEST(SmartBuffer, Has4096BytesAllZeroAtFirst) {
    const SmartBuffer buffer;
    ASSERT_EQ(buffer.size, 4096U);
    EXPECT_TRUE(std::all_of(buffer.data, buffer.data + buffer.size, [](char c) { return c == 0; }));
}

TEST(SmartBuffer, IsWipedBeforeItsStorageIsReleased) {
    constexpr const char* SECRET = "correct horse battery staple";
    const FreedMemory freed(SECRET);
    {
        const SmartBuffer buffer;
        std::strcpy(buffer.data + buffer.size - 50, SECRET);
    }
    EXPECT_EQ(freed.copies_of_secret(), 0);
}

}  // namespace
