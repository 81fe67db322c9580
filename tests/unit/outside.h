#pragma once

// What surrounds the program in the unit tests. The functions through which the code reaches it
// (system, popen and pclose, readline, getpass, gettimeofday) are replaced by ones that record
// their arguments and return what a test has prepared. Nothing is ever started.

#include <gtest/gtest.h>

#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// A program started with popen, and the request in its environment.
struct StartedClient {
    std::string command;
    std::string mode;
    std::map<std::string, std::string> request;  ///< the CGI variables that are set
};

struct Outside {
    /// Standard output up to the last command or question for a password.
    std::string printed_before;

    // The command interpreter.
    std::vector<std::string> command_lines;
    int command_status = 0;

    // The back end's client.
    bool client_can_start = true;
    std::string client_output;
    std::vector<StartedClient> clients;
    std::vector<long> closed_at;  ///< how many bytes of the output had been read at each pclose

    // The keyboard. After the last answer comes the end of input.
    std::deque<std::optional<std::string>> lines;      ///< for readline
    std::deque<std::optional<std::string>> passwords;  ///< for getpass
    std::vector<std::string> prompts;                  ///< of both, in the order of asking
    std::function<void()> while_typing;                ///< called before each answer

    // The clock: the real time, unless one is set.
    bool clock_works = true;
    std::optional<std::time_t> now;
};

extern Outside outside;

/// Every test starts with new surroundings and an empty session state.
class OutsideTest : public testing::Test {
  protected:
    OutsideTest();
    ~OutsideTest() override;
};
