#include "save/save.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cgi/cgi_gateway.h"
#include "config/config_file.h"
#include "console/state.h"
#include "tests/unit/capture.h"
#include "tests/unit/outside.h"
#include "tests/unit/temporary_folder.h"

namespace {

using std::string_literals::operator""s;
using Settings = std::list<std::string>;

class SaveTest : public OutsideTest {
  protected:
    std::string written(const Settings& settings) const {
        const std::string path = folder_.path("save_file");
        write_query_file(path, settings);
        return file_text(path);
    }
    TemporaryFolder folder_;
};

// The version of this machine's version file, or the placeholder if, as usual, it has none.
std::string version_line() {
    ConfigFile version_file("/etc/version.txt", false, false);
    version_file.ChangeSyntax(':', '\n', '#');
    return "VERSION=" + version_file.GetEntry("Version") + "\n";
}

std::string replaced(std::string text, const char* from, const char* to, std::size_t start = 0) {
    replace_all(text, from, to, start);
    return text;
}

std::string rewritten(std::string answer) {
    rewrite_markers(answer);
    return answer;
}

TEST(ReplaceAll, ReplacesEveryOccurrence) {
    struct Row {
        std::string text;
        const char* from;
        const char* to;
        std::string expected;
    };
    const std::vector<Row> rows = {
        {"", "a", "b", ""},
        {"xyz", "a", "b", "xyz"},
        {"a", "a", "b", "b"},
        {"aaa", "a", "b", "bbb"},
        {"a-a", "a", "long", "long-long"},
        {"one two one", "one", "1", "1 two 1"},
        {"one two one", "one", "", " two "},
        {"abc", "abcd", "x", "abc"},
        {"aaaaa", "aa", "b", "bba"},
        {"xabab", "ab", "ab", "xabab"},
        {"a\0a"s, "a", "b", "b\0b"s},
    };
    for (const auto& [text, from, to, expected] : rows) {
        EXPECT_EQ(replaced(text, from, to), expected) << text << ": " << from << " by " << to;
    }
}

TEST(ReplaceAll, InsertedTextIsNotSearchedAgain) {
    EXPECT_EQ(replaced("a", "a", "aa"), "aa");
    EXPECT_EQ(replaced("aab", "ab", "b"), "ab") << "nor text that it forms with the text before it";
    EXPECT_EQ(replaced("aba", "a", "bab"), "babbbab");
}

TEST(ReplaceAll, BeginsAtTheGivenPosition) {
    EXPECT_EQ(replaced("aaa", "a", "b", 1), "abb");
    EXPECT_EQ(replaced("aaa", "a", "b", 3), "aaa");
    EXPECT_EQ(replaced("aaa", "a", "b", 4), "aaa");
    EXPECT_EQ(replaced("abab", "ab", "x", 1), "abx");
}

// If each replacement moved the rest of the text, this would take many times as long.
TEST(ReplaceAll, TimeGrowsLinearlyWithTheText) {
    const std::size_t count = 1'500'000;
    const std::clock_t start = std::clock();
    EXPECT_EQ(replaced(std::string(count, 'a'), "a", "bb"), std::string(2 * count, 'b'));
    EXPECT_LT(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, 3);
}

TEST(RewriteMarkers, TurnsEachMarkerIntoItsWords) {
    const std::vector<std::pair<std::string, std::string>> answers = {
        {"", ""},
        {"saved\n", "saved\n"},
        {"#ERRORport#VAL99#MSGout of range#END", "Error in port=99. out of range"},
        {"a\\nb", "a\nb"},
        {"a\\\\nb", "a\\\nb"},
        {"a\\tb\\", "a\\tb\\"},
        {"#VAL#VAL", "=="},
        {"x#MSGy", "x. y"},
        {"#END", ""},
        {"#END#END\n", "\n"},
        {"#error#val#Msg#end # #ERR #VA", "#error#val#Msg#end # #ERR #VA"},
        {"#ERROR_GLOBAL#MSGfull#END", "Error in _GLOBAL. full"},
        {"#ERRORa#VAL1#MSGb#END\\n#ERRORc#VAL2#MSGd#END\\n", "Error in a=1. b\nError in c=2. d\n"},
        {"#ERROR#VAL#MSG#END", "Error in =. "},
        {"##ERRORa", "#Error in a"},
        {"#E#ENDND", "#END"},
        {"a\0#VAL"s, "a\0="s},
    };
    for (const auto& [answer, expected] : answers) {
        EXPECT_EQ(rewritten(answer), expected) << answer;
    }
}

TEST_F(SaveTest, FileHoldsTheVersionLineAndTheSettingsInTheirOrder) {
    EXPECT_EQ(written({"a=1", "b=2"}), version_line() + "a=1\nb=2\n");
    EXPECT_EQ(written({"b=2", "a=1", "a=1"}), version_line() + "b=2\na=1\na=1\n");
}

TEST_F(SaveTest, VersionInTheFirstSettingTakesThePlaceOfTheVersionLine) {
    EXPECT_EQ(written({"VERSION=1.0", "a=1"}), "VERSION=1.0\na=1\n");
    EXPECT_EQ(written({"xVERSION=1.0"}), "xVERSION=1.0\n");
    EXPECT_EQ(written({"VERSION="}), "VERSION=\n");
}

TEST_F(SaveTest, VersionAnywhereElseDoesNot) {
    EXPECT_EQ(written({"a=1", "VERSION=1.0"}), version_line() + "a=1\nVERSION=1.0\n");
    for (const char* setting : {"VERSION", "version=1", "VERSION:1", "VERSION =1"}) {
        EXPECT_EQ(written({setting}), version_line() + setting + "\n") << setting;
    }
}

TEST_F(SaveTest, SettingsAreWrittenByteForByte) {
    const std::string setting = "VERSION=\0\xff\r%s"s;
    EXPECT_EQ(written({setting, ""}), setting + "\n\n");
}

TEST_F(SaveTest, FileIsOverwrittenAndEmptyWithoutSettings) {
    written({"VERSION=1", "a=1", "b=2"});
    EXPECT_EQ(written({"VERSION=2"}), "VERSION=2\n");
    EXPECT_EQ(written({}), "");
}

TEST_F(SaveTest, FileThatCannotBeCreatedIsIgnoredSilently) {
    EXPECT_EQ(captured_output([&] { write_query_file(folder_.path("none/file"), {"a=1"}); }), "");
    EXPECT_EQ(captured_output([&] { write_query_file(folder_.path(), {"a=1"}); }), "");
}

TEST_F(SaveTest, SaveProgramIsAskedForTheFileAndItsAnswerIsPrintedInWords) {
    outside.client_output = "#ERRORport#VAL99#MSGout of range#END";
    EXPECT_EQ(captured_output([] { run_putconf("/tmp/some file"); }),
              "Error in port=99. out of range");
    ASSERT_EQ(outside.clients.size(), 1U);
    EXPECT_EQ(outside.clients[0].request["PATH_INFO"], "putconf.cgi");
    EXPECT_EQ(outside.clients[0].request["QUERY_STRING"],
              "cgiaction=do_save&localHiddenFilename=/tmp/some file");
    EXPECT_EQ(std::getenv("QUERY_STRING"), nullptr);
}

TEST_F(SaveTest, MarkersSplitBetweenTwoReadsAreFound) {
    outside.client_output = std::string(250, 'x') + "#ERROR" + std::string(300, 'y') + "#END\nz\n";
    EXPECT_EQ(captured_output([] { run_putconf("f"); }),
              std::string(250, 'x') + "Error in " + std::string(300, 'y') + "\nz\n");
}

// An answer with every marker, which arrives in pieces: the first of one size, the others of
// another.
constexpr std::string_view EVERY_MARKER =
    "#ERRORport#VAL99#MSGout of\\nrange#END\n#ERROR_GLOBAL#MSGdisk is full#END#VAL";

struct Pieces {
    std::string_view text;
    std::size_t first;
    std::size_t others;
};

ssize_t read_piece(void* cookie, char* buffer, std::size_t size) {
    auto& pieces = *static_cast<Pieces*>(cookie);
    const std::size_t count = pieces.text.copy(buffer, std::min(size, pieces.first));
    pieces.text.remove_prefix(count);
    pieces.first = pieces.others;
    return static_cast<ssize_t>(count);
}

std::string answer_in_pieces(Pieces pieces) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(
        fopencookie(&pieces, "r", {read_piece, nullptr, nullptr, nullptr}), std::fclose);
    return rewritten(collect(stream.get()));
}

TEST(SaveAnswer, MarkersAreFoundWhereverTheAnswerIsCutInTwo) {
    const std::string expected = rewritten(std::string(EVERY_MARKER));
    ASSERT_EQ(expected.find('#'), std::string::npos);
    for (std::size_t cut = 1; cut <= EVERY_MARKER.size(); ++cut) {
        EXPECT_EQ(answer_in_pieces({EVERY_MARKER, cut, EVERY_MARKER.size()}), expected) << cut;
    }
}

TEST(SaveAnswer, MarkersAreFoundInPiecesOfEverySize) {
    const std::string expected = rewritten(std::string(EVERY_MARKER));
    for (std::size_t size = 1; size <= EVERY_MARKER.size(); ++size) {
        for (std::size_t first = 1; first <= size; ++first) {
            EXPECT_EQ(answer_in_pieces({EVERY_MARKER, first, size}), expected) << first << size;
        }
    }
}

// A line is read in pieces of 254 bytes; their boundary falls on every position of the answer.
TEST(SaveAnswer, MarkersAreFoundWhereverALongLineIsCut) {
    const std::string words = rewritten(std::string(EVERY_MARKER));
    for (std::size_t before = 0; before <= 2 * 254; ++before) {
        const std::string filling(before, 'x');
        const std::string answer = filling + std::string(EVERY_MARKER);
        for (const std::size_t size : {1U, 7U, 253U, 254U, 255U, 4096U}) {
            EXPECT_EQ(answer_in_pieces({answer, size, size}), filling + words) << before;
        }
    }
}

TEST_F(SaveTest, NothingIsPrintedWhenTheClientCannotStartOrAnswersNothing) {
    EXPECT_EQ(captured_output([] { run_putconf("f"); }), "");
    outside.client_can_start = false;
    EXPECT_EQ(captured_output([] { run_putconf("f"); }), "");
}

TEST_F(SaveTest, WithNothingQueuedIsRefusedWithoutARequest) {
    EXPECT_EQ(captured_pieces([] {
                  for (std::string argument : {"", "now"}) {
                      EXPECT_EQ(handle_save(argument.data()), -1);
                  }
              }),
              std::vector<std::string>(2, "ERROR: Nothing to save\n"));
    EXPECT_TRUE(outside.clients.empty());
}

}  // namespace
