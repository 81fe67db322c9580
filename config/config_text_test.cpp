#include "config/config_text.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "config/config_buffer.h"
#include "tests/unit/temporary_folder.h"

namespace {

using config_text::Entry;
using config_text::EntrySyntax;
using config_text::Section;
using config_text::SectionSyntax;
using std::string_literals::operator""s;

using Entries = std::vector<std::pair<std::string, std::string>>;

struct SectionText {
    std::string header;
    Entries entries;
    bool operator==(const SectionText& other) const {
        return header == other.header && entries == other.entries;
    }
};
using Sections = std::vector<SectionText>;

std::ostream& operator<<(std::ostream& out, const SectionText& section) {
    return out << testing::PrintToString(std::make_pair(section.header, section.entries));
}

Entries entries_of(std::string_view text, const EntrySyntax& syntax = {}) {
    Entries entries;
    Entry entry;
    while (config_text::next_entry(text, syntax, entry)) {
        entries.emplace_back(entry.key, entry.value);
    }
    return entries;
}

Sections sections_of(std::string_view text, const char* keyword = "section") {
    const SectionSyntax syntax(keyword, "{\n", "}\n");
    Sections sections;
    Section section;
    while (config_text::next_section(text, syntax, '#', section)) {
        sections.push_back({std::string(section.header), entries_of(section.body)});
    }
    return sections;
}

std::string stripped(const std::string& line, char comment = '#') {
    return std::string(config_text::strip(line, comment));
}

// Generous: linear work takes a fraction of this, quadratic work many times as long.
constexpr double CPU_LIMIT = 5;  // seconds

double cpu_seconds() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

TEST(ConfigTextLine, IsCutAtEachEndCharacterAndAtTheEndOfTheText) {
    std::string_view rest = "one\n\ntwo\nthree";
    EXPECT_EQ(config_text::take_line(rest, '\n'), "one");
    EXPECT_EQ(config_text::take_line(rest, '\n'), "");
    EXPECT_EQ(config_text::take_line(rest, '\n'), "two");
    EXPECT_EQ(rest, "three");
    EXPECT_EQ(config_text::take_line(rest, '\n'), "three");
    EXPECT_EQ(rest, "");
    EXPECT_EQ(config_text::take_line(rest, '\n'), "");
}

TEST(ConfigTextLine, EndsAtTheGivenCharacterOnly) {
    std::string_view rest = "a\nb;c";
    EXPECT_EQ(config_text::take_line(rest, ';'), "a\nb");
    EXPECT_EQ(rest, "c");
}

TEST(ConfigTextStrip, DropsSpacesTabsAndCarriageReturnsAroundTheLineAndKeepsInnerOnes) {
    EXPECT_EQ(stripped(" \t\r a \t\r b\r\t "), "a \t\r b");
    EXPECT_EQ(stripped(" \t\r"), "");
    EXPECT_EQ(stripped(""), "");
    EXPECT_EQ(stripped("plain"), "plain");
}

TEST(ConfigTextStrip, DropsNoOtherCharacter) {
    for (const char c : {'\v', '\f', '\0', '\x01', '\xa0'}) {
        const std::string line = c + "a"s + c;
        EXPECT_EQ(stripped(line), line) << "character " << int{c};
        EXPECT_EQ(stripped("a"s + c + "#b"), "a"s + c + "#b") << "character " << int{c};
    }
}

TEST(ConfigTextStrip, CutsACommentAtTheStartOfALineOrAfterABlankOutsideDoubleQuotes) {
    const std::vector<std::pair<std::string, std::string>> lines = {
        {"# comment", ""},
        {"#", ""},
        {" \t # comment", ""},
        {"#a # b", ""},
        {"admin # main", "admin"},
        {"admin\t# main", "admin"},
        {"admin\r# main", "admin"},
        {"admin #", "admin"},
        {"a # b # c", "a"},
        {"a ## b", "a"},
        {"pa#ss", "pa#ss"},
        {"pass#", "pass#"},
        {"a## b", "a## b"},
        {"pa#ss # comment", "pa#ss"},
        {"\"a # b\"", "\"a # b\""},
        {"\"a\" # b", "\"a\""},
        {"\"a # b\" # c", "\"a # b\""},
        {"\"a\"# b", "\"a\"# b"},
        {"a \"b # c", "a \"b # c"},
        {"\"\"\" # c", "\"\"\" # c"},
        {"a ' # b'", "a '"},
    };
    for (const auto& [line, expected] : lines) {
        EXPECT_EQ(stripped(line), expected) << line;
    }
}

TEST(ConfigTextStrip, UsesTheGivenCommentCharacterOnly) {
    EXPECT_EQ(stripped("a ; b", ';'), "a");
    EXPECT_EQ(stripped("a # b", ';'), "a # b");
}

TEST(ConfigTextEntry, SplitsAtTheFirstAssignmentCharacterWithoutTheBlanksAround) {
    const std::vector<std::pair<std::string, Entries>> lines = {
        {"a=1", {{"a", "1"}}},
        {" a \t=\t 1 ", {{"a", "1"}}},
        {"a=b=c", {{"a", "b=c"}}},
        {"a==b", {{"a", "=b"}}},
        {"a=", {{"a", ""}}},
        {"=1", {{"", "1"}}},
        {"=", {{"", ""}}},
        {"my key = my  value", {{"my key", "my  value"}}},
        {"a=\" quoted \"", {{"a", "\" quoted \""}}},
        {"a=1\r", {{"a", "1"}}},
        {"a = pa#ss", {{"a", "pa#ss"}}},
        {"a = admin # main", {{"a", "admin"}}},
        {"a = # nothing", {{"a", ""}}},
        {"a =# nothing", {{"a", "# nothing"}}},
        {"a = 1 # b = 2", {{"a", "1"}}},
        {"a", {}},
        {"", {}},
        {"# a = 1", {}},
        {"a # = 1", {}},
        {"a:1", {}},
        {"a"s + '\0' + "b=c" + '\0' + "d", {{"a"s + '\0' + "b", "c"s + '\0' + "d"}}},
    };
    for (const auto& [line, expected] : lines) {
        EXPECT_EQ(entries_of(line), expected) << line;
    }
}

TEST(ConfigTextEntry, LineWithoutAssignmentIsSkippedAndEqualKeysAreAllVisited) {
    EXPECT_EQ(entries_of("\nnone\na=1\n# a=0\n\nb=2\na=3"),
              (Entries{{"a", "1"}, {"b", "2"}, {"a", "3"}}));
}

TEST(ConfigTextEntry, SyntaxCanBeChosen) {
    EXPECT_EQ(entries_of("a:1;b=:2 % c;d=3", {':', ';', '%'}), (Entries{{"a", "1"}, {"b=", "2"}}));
}

TEST(ConfigTextEntry, LookUpGivesTheFirstOfEqualKeysAndComparesWholeKeys) {
    const std::string text = "ab=0\na=1\na=2\nA=3\n=4\n";
    EXPECT_EQ(config_text::find_value(text, "a", {}), "1");
    EXPECT_EQ(config_text::find_value(text, "A", {}), "3");
    EXPECT_EQ(config_text::find_value(text, "", {}), "4");
    EXPECT_EQ(config_text::find_value(text, "b", {}), ConfigBuffer::ENTRY_NOT_FOUND);
    EXPECT_EQ(config_text::find_value(text, "abc", {}), ConfigBuffer::ENTRY_NOT_FOUND);
    EXPECT_EQ(config_text::find_value("", "a", {}), ConfigBuffer::ENTRY_NOT_FOUND);
}

TEST(ConfigTextSection, OpeningMarkEndsTheKeywordsLineOrIsAloneOnTheNextNonEmptyOne) {
    const Sections expected = {{"admin", {{"a", "1"}}}};
    for (const char* text : {
             "section admin {\na=1\n}\n",
             "section admin{\na=1\n}\n",
             "section\tadmin\t{\t\r\na=1\r\n}\r\n",
             "  section   admin   {   \n  a=1\n  }  \n",
             "section admin\n{\na=1\n}\n",
             "section admin\n\n  \n\t{ \na=1\n}\n",
             "section admin # c\n# comment\n{ # c\na=1\n} # c\n",
             "section admin { # c\na=1\n}",
             "\n# comment\nskipped\nb=2\n}\nsection admin {\na=1\n}\nc=3\n}\n",
         }) {
        EXPECT_EQ(sections_of(text), expected) << text;
    }
}

TEST(ConfigTextSection, HeaderIsTheTextBetweenKeywordAndOpeningMark) {
    const std::vector<std::pair<std::string, std::string>> lines = {
        {"section {", ""},
        {"section{", ""},
        {"section", ""},
        {"section /cgi-bin/a.cgi?x=1 {", "/cgi-bin/a.cgi?x=1"},
        {"section two  words {", "two  words"},
        {"section \"quoted\" {", "\"quoted\""},
        {"section \"a # b\" {", "\"a # b\""},
        {"section a{b {", "a{b"},
        {"section a {{", "a {"},
        {"section section {", "section"},
        {"section a", "a"},
        {"section {a", "{a"},
        {"section{a {", "{a"},
    };
    for (const auto& [line, header] : lines) {
        const bool open = line.back() == '{';
        const std::string text = line + (open ? "\n" : "\n{\n") + "k=v\n}\n";
        EXPECT_EQ(sections_of(text), (Sections{{header, {{"k", "v"}}}})) << line;
    }
}

TEST(ConfigTextSection, KeywordIsAWholeWordAtTheStartOfALine) {
    for (const char* text : {
             "sections admin {\na=1\n}\n",
             "section-admin {\na=1\n}\n",
             "section=admin {\na=1\n}\n",
             "Section admin {\na=1\n}\n",
             "SECTION admin {\na=1\n}\n",
             "my section admin {\na=1\n}\n",
             "secti on admin {\na=1\n}\n",
             "sectio {\na=1\n}\n",
             "# section admin {\na=1\n}\n",
             "{\na=1\n}\n",
             "",
             "section",
             "section admin",
             "section admin\n",
         }) {
        EXPECT_EQ(sections_of(text), Sections{}) << text;
    }
}

TEST(ConfigTextSection, KeywordWithoutAnOpeningMarkOpensNothing) {
    for (const char* text : {
             "section admin\na=1\n{\nb=2\n}\n",
             "section admin { a=1\nb=2\n}\n",
             "section admin }\nb=2\n}\n",
             "section admin\n{ a=1\nb=2\n}\n",
             "section admin\n{{\nb=2\n}\n",
         }) {
        EXPECT_EQ(sections_of(text), Sections{}) << text;
    }
    EXPECT_EQ(sections_of("section a\nsection b {\nk=v\n}\n"), (Sections{{"b", {{"k", "v"}}}}));
}

TEST(ConfigTextSection, ClosingMarkIsAloneOnItsLine) {
    EXPECT_EQ(sections_of("section a {\nb=}\n} c\n}}\nd=1\n}\ne=2\n"),
              (Sections{{"a", {{"b", "}"}, {"d", "1"}}}}));
}

TEST(ConfigTextSection, UnclosedSectionEndsWhereTheNextOneBeginsAndKeepsItsEntries) {
    EXPECT_EQ(sections_of("section a {\nk=1\nsection b {\nk=2\n}\n"),
              (Sections{{"a", {{"k", "1"}}}, {"b", {{"k", "2"}}}}));
    EXPECT_EQ(sections_of("section a {\nk=1\nsection b\n\n{\nk=2\n}\nk=3\n"),
              (Sections{{"a", {{"k", "1"}}}, {"b", {{"k", "2"}}}}));
}

TEST(ConfigTextSection, UnclosedSectionEndsAtTheEndOfTheFileAndKeepsItsEntries) {
    EXPECT_EQ(sections_of("section a {\nk=1\nl=2"), (Sections{{"a", {{"k", "1"}, {"l", "2"}}}}));
    EXPECT_EQ(sections_of("section a {"), (Sections{{"a", {}}}));
    EXPECT_EQ(sections_of("section a\n{"), (Sections{{"a", {}}}));
}

TEST(ConfigTextSection, EntryThatBeginsWithTheKeywordIsAnEntry) {
    EXPECT_EQ(sections_of("section a {\nsection = x\nsectional = y\n}\n"),
              (Sections{{"a", {{"section", "x"}, {"sectional", "y"}}}}));
}

TEST(ConfigTextSection, TextOutsideSectionsIsIgnored) {
    EXPECT_EQ(sections_of("x=0\nsection a {\nk=1\n}\nx=1\n{\nx=2\n}\nsection b {\n}\nx=3\n"),
              (Sections{{"a", {{"k", "1"}}}, {"b", {}}}));
}

TEST(ConfigTextSection, SectionsOfEqualNamesAndEmptyOnesAreAllVisited) {
    EXPECT_EQ(sections_of("section a {\n}\nsection a {\nk=1\n}\n"),
              (Sections{{"a", {}}, {"a", {{"k", "1"}}}}));
}

TEST(ConfigTextSection, KeywordCanBeChosen) {
    const std::string text = "ITEM a {\n}\nsection b {\n}\n";
    EXPECT_EQ(sections_of(text, "ITEM"), (Sections{{"a", {}}}));
    EXPECT_EQ(sections_of(text, "section"), (Sections{{"b", {}}}));
}

TEST(ConfigTextSection, MarksAreKeptWithoutTheirLineFeed) {
    const SectionSyntax with("k", "{\n", "}\n");
    EXPECT_EQ(with.opening, "{");
    EXPECT_EQ(with.closing, "}");
    const SectionSyntax without("k", "<<", ">>");
    EXPECT_EQ(without.opening, "<<");
    EXPECT_EQ(without.closing, ">>");
}

// Whatever the bytes, every section and entry lies within the text, and in order.
TEST(ConfigTextSection, AnyBytesAreAccepted) {
    std::mt19937 random(20250307);  // NOLINT(*-msc51-cpp): the same texts every time
    const std::vector<std::string> words = {"section", "{", "}",  "\n",  "\n",   " ",  "#",
                                            "\"",      "=", "\r", "\0"s, "\xff", "\t", "a"};
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (auto length = random() % 60; length > 0; --length) {
            text += words[random() % words.size()];
        }
        const char* reached = text.data();
        const SectionSyntax syntax("section", "{\n", "}\n");
        Section section;
        std::string_view rest = text;
        while (config_text::next_section(rest, syntax, '#', section)) {
            ASSERT_LE(reached, section.header.data());
            ASSERT_LE(section.header.data() + section.header.size(), section.body.data());
            reached = section.body.data() + section.body.size();
            ASSERT_LE(reached, text.data() + text.size());
            for (const auto& [key, value] : entries_of(section.body)) {
                ASSERT_EQ(key.find_first_of("=\n"), std::string::npos) << text;
                ASSERT_EQ(value.find('\n'), std::string::npos) << text;
            }
        }
    }
}

TEST(ConfigTextSection, ReadingTimeGrowsLinearlyWithTheFile) {
    const std::vector<std::pair<std::string, std::string>> hostile = {
        {"open sections", "section a {\n"},
        {"keywords without a mark", "section a\n"},
        {"keywords before empty lines", "section\n\n\n\n\n\n\n\n"},
        {"closing marks", "}\n"},
        {"entries", "a=1\n"},
        {"empty lines", "\n"},
        {"no line at all", "section"},
        {"quotes", "\" #"},
    };
    const double start = cpu_seconds();
    for (const auto& [what, line] : hostile) {
        std::string text;
        while (text.size() < 500'000) {
            text += line;
        }
        sections_of(text);
        sections_of("section a\n" + std::string(250'000, '\n') + text);
        sections_of("section a {\n" + text);
        entries_of(text);
        EXPECT_LT(cpu_seconds() - start, CPU_LIMIT) << what;
    }
}

TEST(ConfigTextFile, IsReadWholeWhateverItsSizeAndBytes) {
    const TemporaryFolder folder;
    for (const std::size_t size : {0U, 1U, 65535U, 65536U, 65537U, 1'000'000U}) {
        std::string expected(size, '\0');
        for (std::size_t i = 0; i < size; ++i) {
            expected[i] = static_cast<char>(i * 7 % 256);
        }
        std::string text = "old";
        EXPECT_EQ(config_text::read_file(folder.write("file", expected).c_str(), text), 0);
        EXPECT_TRUE(text == expected) << size << " bytes";
    }
}

TEST(ConfigTextFile, ThatReportsSizeZeroIsReadToItsEnd) {
    std::string text;
    EXPECT_EQ(config_text::read_file("/proc/self/status", text), 0);
    EXPECT_EQ(text.substr(0, 5), "Name:");
    EXPECT_EQ(text.back(), '\n');
}

TEST(ConfigTextFile, WhenUnreadableGivesTheReasonAndNoText) {
    const TemporaryFolder folder;
    ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
    const std::vector<std::pair<std::string, int>> paths = {
        {folder.path("missing"), ENOENT},
        {folder.path(), EISDIR},
        {folder.write("file", "") + "/below", ENOTDIR},
        {folder.path("pipe"), EINVAL},  // without waiting for a writer
        {"/dev/null", EINVAL},
        {"/proc/self/mem", EIO},  // opens, but cannot be read
        {"", ENOENT},
    };
    for (const auto& [path, error] : paths) {
        std::string text = "old";
        EXPECT_EQ(config_text::read_file(path.c_str(), text), error) << path;
        EXPECT_EQ(text, "") << path;
    }
}

}  // namespace
