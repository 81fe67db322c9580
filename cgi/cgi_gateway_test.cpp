#include "cgi/cgi_gateway.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/capture.h"
#include "tests/unit/outside.h"

namespace {

using std::string_literals::operator""s;
using Request = std::map<std::string, std::string>;

class CgiGatewayTest : public OutsideTest {};

constexpr const char* ALWAYS_SET[] = {"REQUEST_METHOD", "PATH_INFO", "REMOTE_ADDR", "CONTENT_TYPE"};

std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream_of(const std::string& text) {
    std::FILE* stream = std::tmpfile();
    std::fwrite(text.data(), 1, text.size(), stream);
    std::rewind(stream);
    return {stream, std::fclose};
}

TEST_F(CgiGatewayTest, StartsTheClientWithTheRequestInItsEnvironment) {
    run_cgi_program("putconf.cgi", "cgiaction=do_save", drain);
    ASSERT_EQ(outside.clients.size(), 1U);
    EXPECT_EQ(outside.clients[0].command, "/bin/fcgiclient");
    EXPECT_EQ(outside.clients[0].mode, "r");
    EXPECT_EQ(outside.clients[0].request,
              (Request{{"REQUEST_METHOD", "GET"},
                       {"PATH_INFO", "putconf.cgi"},
                       {"QUERY_STRING", "cgiaction=do_save"},
                       {"REMOTE_ADDR", "CGI2FastCGI"},
                       {"CONTENT_TYPE", "application/x-www-form-urlencoded"}}));
}

TEST_F(CgiGatewayTest, QueryIsNotEncoded) {
    for (const char* query : {"", "a b", "a=1&b=2=3 4", "%20+\"'\\;$(x)", "\xc3\xa4\n"}) {
        run_cgi_program("a.cgi", query, drain);
        EXPECT_EQ(outside.clients.back().request["QUERY_STRING"], query);
    }
}

TEST_F(CgiGatewayTest, InheritedVariablesAreOverwrittenAndGoneAfterwards) {
    for (const char* name : ALWAYS_SET) {
        setenv(name, "inherited", 1);
    }
    setenv("QUERY_STRING", "inherited", 1);
    EXPECT_EQ(run_cgi_program("a.cgi", "q", drain), 0);
    const Request expected = {{"REQUEST_METHOD", "GET"},
                              {"PATH_INFO", "a.cgi"},
                              {"QUERY_STRING", "q"},
                              {"REMOTE_ADDR", "CGI2FastCGI"},
                              {"CONTENT_TYPE", "application/x-www-form-urlencoded"}};
    EXPECT_EQ(outside.clients.at(0).request, expected);
    for (const auto& [name, value] : expected) {
        EXPECT_EQ(std::getenv(name.c_str()), nullptr) << name;
    }
}

TEST_F(CgiGatewayTest, RequestWithoutAQueryLeavesAnInheritedOneAsItIs) {
    run_cgi_program("logout.cgi", NO_QUERY, drain);
    EXPECT_EQ(outside.clients.at(0).request.count("QUERY_STRING"), 0U);
    setenv("QUERY_STRING", "inherited", 1);
    run_cgi_program("logout.cgi", NO_QUERY, drain);
    EXPECT_EQ(outside.clients.at(1).request["QUERY_STRING"], "inherited");
    EXPECT_STREQ(std::getenv("QUERY_STRING"), "inherited");
}

TEST_F(CgiGatewayTest, RequestIsInTheEnvironmentAndTheClientRunsUntilTheConsumerReturns) {
    static bool consumed;
    consumed = false;
    run_cgi_program("a.cgi", "q", [](std::FILE*) {
        consumed = true;
        EXPECT_STREQ(std::getenv("PATH_INFO"), "a.cgi");
        EXPECT_STREQ(std::getenv("QUERY_STRING"), "q");
        EXPECT_TRUE(outside.closed_at.empty());
    });
    EXPECT_TRUE(consumed);
    EXPECT_EQ(outside.closed_at.size(), 1U);
}

TEST_F(CgiGatewayTest, WhenTheClientCannotStartNoConsumerIsCalledAndTheVariablesAreGone) {
    outside.client_can_start = false;
    EXPECT_EQ(captured_output([] {
                  EXPECT_EQ(run_cgi_program("a.cgi", "q", [](std::FILE*) { ADD_FAILURE(); }), 0);
              }),
              "");
    EXPECT_TRUE(outside.closed_at.empty());
    for (const char* name : ALWAYS_SET) {
        EXPECT_EQ(std::getenv(name), nullptr) << name;
    }
    EXPECT_EQ(std::getenv("QUERY_STRING"), nullptr);
}

TEST_F(CgiGatewayTest, ConsumerThatThrowsLeavesNeitherTheRequestNorTheClient) {
    EXPECT_THROW(run_cgi_program("a.cgi", "q", [](std::FILE*) { throw std::bad_alloc(); }),
                 std::bad_alloc);
    EXPECT_EQ(outside.closed_at.size(), 1U);
    for (const char* name : ALWAYS_SET) {
        EXPECT_EQ(std::getenv(name), nullptr) << name;
    }
    EXPECT_EQ(std::getenv("QUERY_STRING"), nullptr);
}

TEST_F(CgiGatewayTest, CloseAtOnceReadsNothing) {
    outside.client_output = "answer\n";
    run_cgi_program("a.cgi", NO_QUERY, close_at_once);
    EXPECT_EQ(outside.closed_at, std::vector<long>{0});
}

TEST_F(CgiGatewayTest, DrainReadsToTheEndAndPrintsNothing) {
    const std::string text = "short\n" + std::string(1000, 'x') + "\n\0\n"s + std::string(300, 'y');
    const auto stream = stream_of(text);
    EXPECT_EQ(captured_output([&] { drain(stream.get()); }), "");
    EXPECT_EQ(std::ftell(stream.get()), static_cast<long>(text.size()));
    EXPECT_NE(std::feof(stream.get()), 0);
}

std::string collected(const std::string& text) {
    return collect(stream_of(text).get());
}

TEST_F(CgiGatewayTest, CollectReturnsTheWholeOutputInOrder) {
    std::vector<std::string> texts = {"", "\n", "a", "a\n", "a\n\nb\r\nc\n", "\xff\x01\n"};
    for (const std::size_t length :
         {253U, 254U, 255U, 256U, 508U, 509U, 10'000U, 65'536U, 200'000U}) {
        texts.push_back(std::string(length, 'x'));
        texts.push_back(std::string(length, 'x') + "\n" + std::string(length, 'y') + "\nz");
    }
    for (const std::string& text : texts) {
        EXPECT_EQ(collected(text), text) << text.size() << " bytes";
    }
}

// A line is read in pieces of 254 characters, and a text ends at its first NUL.
TEST_F(CgiGatewayTest, CollectLosesWhatFollowsANulByteInTheSamePiece) {
    const std::vector<std::pair<std::string, std::string>> texts = {
        {"a\0b\nc\n"s, "ac\n"},
        {"\0\nb\n"s, "b\n"},
        {"aaaa\0"s + std::string(249, 'b') + "cc\nd\n", "aaaacc\nd\n"},
        {"aaaa\0"s + std::string(248, 'b') + "\nd\n", "aaaad\n"},
        {std::string(253, 'a') + "\0b"s, std::string(253, 'a') + "b"},
    };
    for (const auto& [text, expected] : texts) {
        EXPECT_EQ(collected(text), expected) << testing::PrintToString(text);
    }
}

}  // namespace
