#include "console/line_editor.h"

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include <readline/readline.h>
#include <readline/tilde.h>
#include <unistd.h>

#include "console/text.h"
#include "tests/unit/capture.h"
#include "tests/unit/freed_memory.h"
#include "tests/unit/outside.h"

namespace {

class LineEditorTest : public OutsideTest {};

TEST_F(LineEditorTest, UsesThePromptAndTheShellsCompletion) {
    init_line_editor();
    EXPECT_STREQ(rl_readline_name, "tessel:> ");
    EXPECT_EQ(rl_attempted_completion_function, tessel_completion);
}

TEST_F(LineEditorTest, TildeIsNotExpandedBeforeTheLogin) {
    protect_line_editor();
    const std::unique_ptr<char, FreeDeleter> root(tilde_expand("~root/x"));
    EXPECT_STREQ(root.get(), "~root/x");
    init_line_editor();
    EXPECT_EQ(tilde_expansion_preexpansion_hook, nullptr);
}

TEST_F(LineEditorTest, CompletionOffersNothingAndLeavesTheRestToTheEditor) {
    rl_attempted_completion_over = 0;
    EXPECT_EQ(tessel_completion("he", 0, 2), nullptr);
    EXPECT_EQ(rl_attempted_completion_over, 0);
}

TEST_F(LineEditorTest, AnswerIsExactlyWhatWasTypedAndNoneAtTheEndOfInput) {
    outside.lines = {" a b\t", "", std::nullopt};
    EXPECT_STREQ(read_line("One: ").get(), " a b\t");
    EXPECT_STREQ(read_line("Two: ").get(), "");
    EXPECT_EQ(read_line("Three: "), nullptr);
    EXPECT_EQ(outside.prompts, (std::vector<std::string>{"One: ", "Two: ", "Three: "}));
}

TEST_F(LineEditorTest, PasswordIsExactlyWhatWasTypedOrNoneWhenUnreadable) {
    outside.passwords = {" pw ", "", std::nullopt};
    EXPECT_EQ(read_password("Password: ")->view(), " pw ");
    EXPECT_EQ(read_password("Password: ")->view(), "");
    EXPECT_FALSE(read_password("Password: ").has_value());
}

TEST_F(LineEditorTest, InterruptedPasswordIsCancelled) {
    outside.passwords = {std::nullopt, std::nullopt, "pw"};
    outside.while_typing = [] { errno = EINTR; };
    EXPECT_FALSE(read_password("Password: ").has_value());
    EXPECT_TRUE(called_off());
    outside.while_typing = [] { errno = EIO; };
    EXPECT_FALSE(read_password("Password: ").has_value());
    EXPECT_FALSE(called_off());
    EXPECT_TRUE(read_password("Password: ").has_value());
    EXPECT_FALSE(called_off());
}

TEST_F(LineEditorTest, PasswordIsWipedWhereItWasTyped) {
    outside.passwords = {"secret", "secret"};
    const char* typed = getpass("");
    ASSERT_STREQ(typed, "secret");
    EXPECT_EQ(read_password("Password: ")->view(), "secret");
    EXPECT_EQ(std::string(typed, 6), std::string(6, '\0'));
}

TEST_F(LineEditorTest, PasswordIsKeptInNoOtherPlaceThanTheResult) {
    constexpr const char* SECRET = "correct horse battery staple";
    outside.passwords = {SECRET};
    const FreedMemory freed(SECRET);
    std::optional<Secret> password = read_password("Password: ");
    EXPECT_EQ(password->view(), SECRET);
    password.reset();
    EXPECT_EQ(freed.copies_of_secret(), 0);
}

TEST_F(LineEditorTest, OutputIsFlushedBeforeAPasswordIsAskedFor) {
    captured_output([] {
        print("Please\n");
        read_password("Password: ");
    });
    EXPECT_EQ(outside.printed_before, "Please\n");
}

}  // namespace
