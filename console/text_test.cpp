#include "console/text.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/capture.h"

namespace {

using std::string_literals::operator""s;

TEST(TrimBlanks, CutsSpacesAndTabsAtBothEndsAndNothingElse) {
    const std::vector<std::pair<std::string, std::string>> texts = {
        {"", ""},
        {" ", ""},
        {" \t \t", ""},
        {"a", "a"},
        {" a", "a"},
        {"a ", "a"},
        {"   help   ", "help"},
        {"\t \thelp\t \t", "help"},
        {" get part  ext ", "get part  ext"},
        {" a\tb ", "a\tb"},
        {"\r\n a \r\n", "\r\n a \r\n"},
        {" \va\f ", "\va\f"},
        {" \n ", "\n"},
        {"\xa0", "\xa0"},
    };
    for (const auto& [text, expected] : texts) {
        std::string buffer = text;
        EXPECT_STREQ(trim_blanks(buffer.data()), expected.c_str()) << '"' << text << '"';
    }
}

TEST(TrimBlanks, ReturnsAPointerIntoTheStringAndLeavesTheBytesBeforeIt) {
    std::string buffer = " \tab \t";
    EXPECT_EQ(trim_blanks(buffer.data()), buffer.data() + 2);
    EXPECT_EQ(buffer, " \tab\0\t"s);
}

TEST(TrimBlanks, OfBlanksOnlyReturnsTheEndAndWritesNothing) {
    std::string buffer = " \t ";
    EXPECT_EQ(trim_blanks(buffer.data()), buffer.data() + 3);
    EXPECT_EQ(buffer, " \t ");
}

TEST(ErrorMessage, IsThePrefixAndTheMessageUnchanged) {
    EXPECT_EQ(make_error_message("Nothing to save\n"), "ERROR: Nothing to save\n");
    EXPECT_EQ(make_error_message(""), "ERROR: ");
}

TEST(Print, PutsEveryByteOnStandardOutputNulIncluded) {
    const std::string text = "a\0b\n\xff"s;
    EXPECT_EQ(captured_output([&] { print(text); }), text);
    EXPECT_EQ(captured_output([&] { print_now(text); }), text);
}

TEST(Print, IsNotRepeatedAfterAnEarlierInterruption) {
    errno = EINTR;
    EXPECT_EQ(captured_output([] { print_now("\n"); }), "\n");
}

TEST(Print, IsBufferedUntilSomethingIsPrintedNow) {
    EXPECT_EQ(captured_pieces([] {
                  print("a\n");
                  print("b\n");
                  print_now("c\n");
                  print_now("d\n");
                  print("e");
                  print("f");
              }),
              (std::vector<std::string>{"a\nb\n", "c\n", "d\n", "ef"}));
}

}  // namespace
