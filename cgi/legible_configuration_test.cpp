#include "cgi/legible_configuration.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "console/state.h"
#include "console/text.h"
#include "tests/unit/capture.h"
#include "tests/unit/outside.h"
#include "tests/unit/temporary_folder.h"

namespace {

using std::string_literals::operator""s;

constexpr std::size_t PIECE = 255;  // bytes read at once

class LegibleConfigurationTest : public OutsideTest {
  protected:
    std::string printed(const std::string& text) const {
        const std::string path = folder_.write("summary", text);
        return captured_output([&] { print_without_version(path.c_str()); });
    }
    TemporaryFolder folder_;
};

std::string x(std::size_t count) {
    return std::string(count, 'x');
}

// The same rule, written differently: split the file into pieces and cut each at its first NUL. Of
// the first piece with the word, keep what follows the next line feed. Join the pieces.
std::string expected_output(const std::string& text) {
    std::vector<std::string> pieces;
    for (std::size_t start = 0; start < text.size(); start += PIECE) {
        pieces.emplace_back(text.substr(start, PIECE).c_str());
    }
    for (std::string& piece : pieces) {
        const char* word = std::strstr(piece.c_str(), "VERSION");
        if (word != nullptr) {
            const char* line_feed = std::strchr(word, '\n');
            if (line_feed != nullptr) {
                piece = std::string(line_feed + 1);
            }
            break;
        }
    }
    std::string output;
    for (const std::string& piece : pieces) {
        output += piece;
    }
    return output;
}

// Checks 256 files: the two texts with each possible byte between them. The files are in memory,
// since thousands of them would take long on a disk.
void expect_same_rule(const std::string& before, const std::string& after) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
        fdopen(memfd_create("summary", 0), "w"), std::fclose);
    const std::string path = "/proc/self/fd/" + std::to_string(fileno(file.get()));
    std::string expected;
    const std::string seen = captured_output([&] {
        for (int byte = 0; byte < 256; ++byte) {
            const std::string text = before + static_cast<char>(byte) + after;
            ASSERT_EQ(pwrite(fileno(file.get()), text.data(), text.size(), 0),
                      static_cast<ssize_t>(text.size()));
            print_without_version(path.c_str());
            print_now("\n---\n");
            expected += expected_output(text) + "\n---\n";
        }
    });
    EXPECT_EQ(seen, expected) << before.size() << " bytes, any byte, " << after;
}

TEST_F(LegibleConfigurationTest, EverythingUpToTheEndOfTheVersionLineIsDropped) {
    const std::vector<std::pair<std::string, std::string>> files = {
        {"VERSION=1.0\na=1\n", "a=1\n"},
        {"VERSION=1.0\na=1", "a=1"},
        {"VERSION\n\na=1\n", "\na=1\n"},
        {"lost\n# MYVERSION2 = 1\na=1\n", "a=1\n"},
        {"VERSION=1\nVERSION=2\na=1\n", "VERSION=2\na=1\n"},
        {"VERSIONVERSION\na\n", "a\n"},
        {"VERSION=1.0\r\na=1\r\n", "a=1\r\n"},
    };
    for (const auto& [text, expected] : files) {
        EXPECT_EQ(printed(text), expected) << text;
    }
}

TEST_F(LegibleConfigurationTest, FileOfOnlyTheVersionLinePrintsNothing) {
    EXPECT_EQ(printed("VERSION=1.0\n"), "");
    EXPECT_EQ(printed(x(PIECE - 8) + "VERSION\n" + "a=1\n"), "a=1\n");
}

TEST_F(LegibleConfigurationTest, PieceWithVersionButNoLineFeedAfterItIsPrintedWhole) {
    EXPECT_EQ(printed("VERSION=1.0"), "VERSION=1.0");
    EXPECT_EQ(printed("a=1\nVERSION"), "a=1\nVERSION");
    const std::string long_line = "VERSION=" + x(PIECE) + "\na=1\nVERSION=2\nb=1\n";
    EXPECT_EQ(printed(long_line), long_line) << "and the search is over";
}

TEST_F(LegibleConfigurationTest, FileWithoutVersionIsPrintedWhole) {
    for (const std::string& text : {""s, "\n"s, "a=1\n"s, "version=1\nVersion=2\nVERSIO\nN\n"s,
                                    x(PIECE), x(PIECE + 1), x(2 * PIECE), x(100'000)}) {
        EXPECT_EQ(printed(text), text) << text.size() << " bytes";
    }
}

TEST_F(LegibleConfigurationTest, VersionInALaterPieceCutsThatPieceOnly) {
    EXPECT_EQ(printed(x(PIECE) + "lost VERSION=1\na=1\n"), x(PIECE) + "a=1\n");
    EXPECT_EQ(printed(x(2 * PIECE) + "VERSION\n" + x(PIECE) + "VERSION\nb"),
              x(2 * PIECE) + x(PIECE) + "VERSION\nb");
}

TEST_F(LegibleConfigurationTest, VersionSplitByTheEndOfAPieceIsNotFound) {
    for (std::size_t inside = 1; inside < 7; ++inside) {
        const std::string text = x(PIECE - inside) + "VERSION=1\na=1\n";
        EXPECT_EQ(printed(text), text) << inside << " characters before the end of the piece";
    }
    EXPECT_EQ(printed(x(PIECE - 7) + "VERSION=1\na=1\n"), x(PIECE - 7) + "VERSION=1\na=1\n")
        << "found, but its line feed is in the next piece";
    EXPECT_EQ(printed(x(PIECE) + "VERSION=1\na=1\n"), x(PIECE) + "a=1\n");
}

TEST_F(LegibleConfigurationTest, TextAfterANulByteIsLostToTheEndOfItsPiece) {
    EXPECT_EQ(printed("a=1\n\0b=2\n"s), "a=1\n");
    EXPECT_EQ(printed("VERSION=1\na=1\n\0b=2\n"s + x(PIECE)), "a=1\n" + x(19));
    EXPECT_EQ(printed("a\0VERSION=1\nb"s), "a");
    EXPECT_EQ(printed("VERSION\0=1\nb"s), "VERSION");
    EXPECT_EQ(printed("\0"s + x(PIECE - 1) + "VERSION=1\nb=2\n"), "b=2\n");
}

TEST_F(LegibleConfigurationTest, RandomFilesArePrintedByTheSameRule) {
    std::mt19937 random(7);  // NOLINT(*-msc51-cpp): the same files every time
    const std::vector<std::string> words = {"VERSION", "\n", "a=1", "\0"s, "VERSIO", "N", x(40)};
    for (int round = 0; round < 400; ++round) {
        std::string text = round % 2 == 0 ? x(PIECE - random() % 30) : "";
        for (auto count = random() % 60; count > 0; --count) {
            text += words[random() % words.size()];
        }
        ASSERT_EQ(printed(text), expected_output(text)) << testing::PrintToString(text);
    }
}

// Every byte at every position next to a piece boundary, with and without a version before it.
TEST_F(LegibleConfigurationTest, AnyByteAtAPieceBoundaryIsPrintedByTheSameRule) {
    for (const std::string& start : {""s, "VERSION=1\n"s}) {
        for (const std::size_t place : {PIECE - 2, PIECE - 1, PIECE, PIECE + 1, 2 * PIECE - 2,
                                        2 * PIECE - 1, 2 * PIECE, 2 * PIECE + 1}) {
            const std::size_t before = place - start.size();
            const std::size_t after = 2 * PIECE + 8 - place;
            expect_same_rule(start + x(before), x(after));
        }
    }
}

// The word begins at every position next to a piece boundary, with every byte before or after it.
TEST_F(LegibleConfigurationTest, AnyByteNextToAVersionAtAPieceBoundaryIsPrintedByTheSameRule) {
    for (std::size_t place = PIECE - 9; place <= PIECE + 1; ++place) {
        expect_same_rule(x(place - 1), "VERSION=1\na=1\n");
        expect_same_rule(x(place) + "VERSION", "=1\na=1\n");
    }
}

TEST_F(LegibleConfigurationTest, EveryPieceIsFlushedAndNoEmptyOneIsWritten) {
    const std::string path = folder_.write(
        "summary", "VERSION=1\n" + x(PIECE - 10) + std::string(PIECE, 'y') + "\0lost"s);
    EXPECT_EQ(captured_pieces([&] { print_without_version(path.c_str()); }),
              (std::vector<std::string>{x(PIECE - 10), std::string(PIECE, 'y')}));
}

TEST_F(LegibleConfigurationTest, UnreadableFilePrintsNothing) {
    for (const std::string& path : {folder_.path("missing"), folder_.path()}) {
        EXPECT_EQ(captured_output([&] { print_without_version(path.c_str()); }), "") << path;
    }
}

TEST_F(LegibleConfigurationTest, RequestForAGeneralPartContainsItsName) {
    captured_output([] { generate_legible_configuration("sip", ""); });
    ASSERT_EQ(outside.clients.size(), 1U);
    EXPECT_EQ(outside.clients[0].request["PATH_INFO"], "getconfsummary.cgi");
    EXPECT_EQ(outside.clients[0].request["QUERY_STRING"],
              "cgiaction=Start generating a legible configuration file&parampattern=sip");
}

TEST_F(LegibleConfigurationTest, RequestForAnExtensionPartContainsItsCaptionAndTheExtension) {
    _gAdminConParts = {{"forward", "Wrong"}};
    _gExtensionConfParts = {{"forward", "Call forwarding"}};
    captured_output([] { generate_legible_configuration("forward", "201"); });
    ASSERT_EQ(outside.clients.size(), 1U);
    EXPECT_EQ(outside.clients[0].request["PATH_INFO"], "getconfsummary.cgi");
    EXPECT_EQ(outside.clients[0].request["QUERY_STRING"],
              "cgiaction=Start generating a legible configuration file"
              "&cgiDescription=Call forwarding&extensionName=201");
}

TEST_F(LegibleConfigurationTest, OutputOfTheClientIsReadToItsEndButNeverShown) {
    outside.client_output = std::string(1000, 'x') + "\nanswer";
    const std::string output = captured_output([] { generate_legible_configuration("sip", ""); });
    EXPECT_EQ(output.find("answer"), std::string::npos);
    EXPECT_EQ(output.substr(output.size() - 2), "\n\n") << "the text is closed by two line feeds";
    EXPECT_EQ(outside.closed_at, std::vector<long>{1007});
}

TEST_F(LegibleConfigurationTest, NothingIsPrintedWhenTheClientCannotStart) {
    outside.client_can_start = false;
    EXPECT_EQ(captured_output([] { generate_legible_configuration("sip", ""); }), "");
    EXPECT_EQ(std::getenv("PATH_INFO"), nullptr);
}

}  // namespace
