// Lines typed at the prompt. Input: the lines, which also answer a dialogue's questions.

#include <deque>

#include "console/state.h"
#include "console/text.h"
#include "session/logout.h"
#include "shell/command_loop.h"
#include "tests/fuzz/support.h"

namespace {

constexpr const char* EXTENSION_DATABASE =
    "section extension {\na=201\n}\nsection paging {\nb= 7 7\n}\n";

// The expected state of the session, and the programs that it is expected to have run.
struct Expected {
    std::deque<std::string> queue;
    std::vector<std::string> requests;
    std::vector<std::string> logs_shown;
    std::size_t transfers = 0;
    bool exit = false;
};

std::string plain_trim(std::string text) {
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.pop_back();
    }
    while (!text.empty() && (text[0] == ' ' || text[0] == '\t')) {
        text.erase(0, 1);
    }
    return text;
}

void expect_get(Expected& expected, const std::string& argument) {
    const std::size_t blank = argument.find(' ');
    const std::string name = argument.substr(0, blank);
    const std::string extension = blank == std::string::npos ? "" : argument.substr(blank + 1);
    const bool general = extension.empty() && name == "sip";
    const bool special = name == "forward" && (extension == "201" || extension == "7 7");
    if (general || special) {
        expected.requests.emplace_back("getconfsummary.cgi");
    }
}

void expect_show(Expected& expected, const std::string& argument) {
    const std::map<std::string, std::string> logs = {{"cm", "/var/log/cm.log"},
                                                     {"sip", "/tmp/logs/sip_ua.log"},
                                                     {"sip_reg", "/tmp/logs/sip_reg.log"},
                                                     {"Q.931", "/tmp/logs/isdnagent.log"}};
    if (const auto log = logs.find(argument); log != logs.end()) {
        expected.logs_shown.push_back("cat " + log->second);
    }
}

void expect_save(Expected& expected) {
    if (expected.queue.empty()) {
        return;
    }
    std::string file =
        expected.queue[0].find("VERSION=") == std::string::npos ? "VERSION=2.1\n" : "";
    for (const std::string& setting : expected.queue) {
        file += setting + "\n";
    }
    require_equal(outside.written["/tmp/consoleLCFile"], file, "the save file");
    expected.queue.clear();
    expected.requests.emplace_back("putconf.cgi");
}

void expect_setting(Expected& expected, const std::string& word) {
    if (word.size() <= 256) {
        expected.queue.push_back(word);
        if (expected.queue.size() > 100) {
            expected.queue.pop_front();
        }
    }
}

void expect_line(Expected& expected, const std::string& line) {
    const std::size_t end = line.find_first_of(" \t");
    const std::string word = line.substr(0, end);
    const std::string argument = end == std::string::npos ? "" : plain_trim(line.substr(end));
    if (word == "get") {
        expect_get(expected, argument);
    } else if (word == "show") {
        expect_show(expected, argument);
    } else if (word == "save") {
        expect_save(expected);
    } else if (word == "backup" || word == "restore") {
        ++expected.transfers;
    } else if (word == "exit") {
        expected.exit = true;
    } else if (word != "list" && word != "help" && word != "log_ls") {
        expect_setting(expected, word);
    }
}

bool is_transfer(const std::string& line) {
    return line.rfind("wput -B -t 3 -I \"backupconfig -b -d stdout\" ", 0) == 0 ||
           line.rfind("/bin/wget -nv -t 3 --passive-ftp ", 0) == 0;
}

void check(const Expected& expected) {
    require(_gDoExit == expected.exit, "only exit ends the session");
    require(std::deque<std::string>(_gQueryString.begin(), _gQueryString.end()) == expected.queue,
            "the pending settings");
    require(outside.requests == expected.requests, "the requests");
    std::vector<std::string> logs_shown;
    std::size_t transfers = 0;
    for (const std::string& line : outside.command_lines) {
        if (is_transfer(line)) {
            ++transfers;
        } else if (line != "reboot") {
            logs_shown.push_back(line);
        }
    }
    require(logs_shown == expected.logs_shown, "the only command lines are those of logs");
    require(transfers == expected.transfers, "a transfer for each backup and restore");
}

void start_afresh(const std::string& typed) {
    outside = Outside();
    outside.typed = typed;
    outside.files = {{"/etc/version.txt", "Version: 2.1\n"},
                     {"/etc/tarn-conf/telephony/extensiondb", EXTENSION_DATABASE}};
    outside.client_output = "#ERRORa#VAL1#MSGno#END\\n";
    _gAdminConParts = {{"sip", "SIP settings"}};
    _gExtensionConfParts = {{"forward", "Call forwarding"}};
    _gQueryString.clear();
    _gDoExit = false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    start_afresh(input_text(data, size));
    Expected expected;
    printed([&expected] {
        while (!outside.typed.empty() && !_gDoExit) {
            std::string typed = take_line(outside.typed).c_str();
            const std::string line = plain_trim(typed);
            char* trimmed = trim_blanks(typed.data());
            require_equal(trimmed, line, "the trimmed line");
            if (!line.empty()) {
                dispatch_line(trimmed);
                expect_line(expected, line);
                check(expected);
            }
        }
    });
    return 0;
}
