#pragma once

// The world outside the program, as the unit tests play it. In the test program the functions
// through which the code reaches that world (system, popen and pclose, readline, getpass,
// gettimeofday) are replaced by ones that note what they are asked and answer what a test has
// prepared. Nothing is ever started.

#include <gtest/gtest.h>

#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// A program started with popen, with the request that it found in its environment.
struct StartedClient {
    std::string command;
    std::string mode;
    std::map<std::string, std::string> request;  ///< only those of the CGI variables that are set
};

struct Outside {
    /// What stood on standard output when a command or a question for a password came last.
    std::string printed_before;

    // The command interpreter.
    std::vector<std::string> command_lines;
    int command_status = 0;

    // The back end's client.
    bool client_can_start = true;
    std::string client_output;
    std::vector<StartedClient> clients;
    std::vector<long> closed_at;  ///< how many bytes of the output had been read at each pclose

    // The keyboard. When no answer is left, input is at its end.
    std::deque<std::optional<std::string>> lines;      ///< for readline
    std::deque<std::optional<std::string>> passwords;  ///< for getpass
    std::vector<std::string> prompts;                  ///< of both, in the order of asking
    std::function<void()> while_typing;                ///< happens before each answer is there

    // The clock: the real time unless a time is set.
    bool clock_works = true;
    std::optional<std::time_t> now;
};

extern Outside outside;

/// Starts every test with a fresh outside and a session that remembers nothing.
class OutsideTest : public testing::Test {
  protected:
    OutsideTest();
    ~OutsideTest() override;
};
