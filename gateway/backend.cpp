// The web back end of the development gateway, as far as the console shell uses it: a FastCGI
// program, started on a socket by spawn-fcgi, that serves one request at a time.
//
//   getconfsummary.cgi  writes a part's settings, as readable text, into a file
//   putconf.cgi         checks the settings in the shell's save file and saves the valid ones
//   logout.cgi          is only recorded, like every request
//
// Only SIGTERM ends it: a file that cannot be read or written is reported on standard error and in
// the answer.
#include <fcgiapp.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>

#include "gateway/schema.h"
#include "gateway/store.h"

namespace {

constexpr auto schema_path = "/etc/gateway-schema.conf";
constexpr auto store_path = "/var/lib/gateway/settings.conf";
constexpr auto request_log_path = "/var/lib/gateway/requests.log";
constexpr auto process_id_path = "/run/backend.pid";
constexpr auto version_path = "/etc/version.txt";
constexpr auto extension_database_path = "/etc/tarn-conf/telephony/extensiondb";
constexpr auto summary_path = "/tmp/script_legconftmp.txt";
constexpr auto save_path = "/tmp/consoleLCFile";

// A line break in an answer to the shell.
constexpr auto line_break = "\\n";

struct Gateway {
    Schema schema;
    Store store;
};

// The text after the first `key` up to `end`, or to the end of the query. Queries are not encoded,
// so a value may contain any character.
std::string_view query_value(std::string_view query, std::string_view key,
                             std::string_view end = {}) {
    const auto start = query.find(key);
    if (start == std::string_view::npos) {
        return {};
    }
    const auto rest = query.substr(start + key.size());
    return end.empty() ? rest : rest.substr(0, rest.rfind(end));
}

std::string firmware_version() {
    constexpr std::string_view key = "Version:";
    std::ifstream file(version_path);
    std::string line;
    while (std::getline(file, line)) {
        if (line.compare(0, key.size(), key) == 0) {
            const auto start = line.find_first_not_of(" \t", key.size());
            const auto end = line.find_last_not_of(" \t\r");
            return start == std::string::npos ? "" : line.substr(start, end - start + 1);
        }
    }
    std::cerr << "backend: " << version_path << " contains no version\n";
    return {};
}

// --- getconfsummary.cgi ---

std::string write_summary(const Gateway& gateway, const Part* part, std::string_view extension) {
    std::ofstream file(summary_path, std::ios::trunc);
    file << "VERSION=" << firmware_version() << '\n';
    if (part != nullptr) {
        for (const Setting& setting : part->settings) {
            const std::string name = full_name(*part, extension, setting);
            file << name << '=' << gateway.store.value(name, setting) << '\n';
        }
    }
    file.close();
    if (!file.good()) {
        std::cerr << "backend: " << summary_path << " cannot be written\n";
        return std::string("ERROR: ") + summary_path + " cannot be written\n";
    }
    return part == nullptr ? "ERROR: there is no such part\n" : "OK\n";
}

std::string get_configuration_summary(const Gateway& gateway, std::string_view query) {
    constexpr std::string_view extension_key = "&extensionName=";
    if (query.find(extension_key) == std::string_view::npos) {
        return write_summary(gateway,
                             gateway.schema.general_part(query_value(query, "&parampattern=")), {});
    }
    const auto caption = query_value(query, "&cgiDescription=", extension_key);
    const auto extension = query.substr(query.rfind(extension_key) + extension_key.size());
    const bool listed = extension_listed(extension_database_path, extension);
    return write_summary(gateway, listed ? gateway.schema.extension_part(caption) : nullptr,
                         extension);
}

// --- putconf.cgi ---

// The shell shows these as "Error in NAME=VALUE. MESSAGE" and "Error in _GLOBAL. MESSAGE".
std::string rejection(std::string_view name, std::string_view value, std::string_view message) {
    std::string text = "#ERROR";
    text.append(name).append("#VAL").append(value).append("#MSG").append(message);
    return text + "#END" + line_break;
}

std::string global_rejection(const std::string& message) {
    return "#ERROR_GLOBAL#MSG" + message + ". Nothing was saved#END" + line_break;
}

// Adds the setting in a line to `changes`. Returns the rejection, empty if there is none.
std::string check_line(const Gateway& gateway, const std::string& line, Values& changes) {
    const auto equals = line.find('=');
    const std::string name = line.substr(0, equals);
    if (equals == std::string::npos) {
        return rejection(name, "", "A setting is written as NAME=VALUE");
    }
    const std::string value = line.substr(equals + 1);
    std::string extension;
    const Setting* setting = gateway.schema.find(name, extension);
    if (setting == nullptr) {
        return rejection(name, value, "There is no such setting");
    }
    if (!extension.empty() && !extension_listed(extension_database_path, extension)) {
        return rejection(name, value, "There is no extension " + extension);
    }
    const std::string reason = objection(*setting, value);
    if (!reason.empty()) {
        return rejection(name, value, reason);
    }
    changes[name] = value;
    return {};
}

// Returns what is wrong with a version line, or an empty text.
std::string check_version(const std::string& line, const std::string& version) {
    constexpr std::string_view key = "VERSION=";
    if (line.compare(0, key.size(), key) != 0) {
        return "The settings do not state their firmware version";
    }
    const std::string given = line.substr(key.size());
    return given == version ? ""
                            : "The settings are for firmware " + given + ", this is " + version;
}

// Valid settings are saved even if others are rejected. Of several values for one setting the last
// valid one is saved.
std::string put_configuration(Gateway& gateway, std::string_view query) {
    if (query_value(query, "localHiddenFilename=") != save_path) {
        return global_rejection(std::string("Settings are taken from ") + save_path + " only");
    }
    std::ifstream file(save_path);
    if (!file) {
        return global_rejection(std::string(save_path) + " cannot be read");
    }
    const std::string version = firmware_version();
    std::string line;
    std::getline(file, line);
    std::string problem = check_version(line, version);
    std::string answer;
    Values changes;
    while (problem.empty() && std::getline(file, line)) {
        if (line.compare(0, 8, "VERSION=") == 0) {
            problem = check_version(line, version);
        } else if (!line.empty()) {
            answer += check_line(gateway, line, changes);
        }
    }
    if (problem.empty() && !changes.empty()) {
        problem = gateway.store.save(changes);
        problem = problem.empty() ? "" : "The settings cannot be stored: " + problem;
    }
    if (!problem.empty()) {
        return global_rejection(problem);
    }
    const std::string count = changes.empty() ? "No" : std::to_string(changes.size());
    return answer + count + (changes.size() == 1 ? " setting saved" : " settings saved") +
           line_break;
}

// --- requests ---

struct Request {
    std::string method;
    std::string program;
    std::string query;
};

struct Answer {
    const char* status;
    std::string text;
};

Answer answer_to(const Request& request, Gateway& gateway) {
    if (request.method != "GET") {
        return {"405 Method Not Allowed", "ERROR: only GET is served\n"};
    }
    if (request.program == "getconfsummary.cgi") {
        return {"200 OK", get_configuration_summary(gateway, request.query)};
    }
    if (request.program == "putconf.cgi") {
        return {"200 OK", put_configuration(gateway, request.query)};
    }
    if (request.program == "logout.cgi") {
        return {"200 OK", "OK\n"};
    }
    return {"404 Not Found", "ERROR: there is no such program\n"};
}

// Adds a line to the request log: the request's method, its program and its query, if any.
void record(const Request& request) {
    std::string line = request.method + ' ' + request.program;
    if (!request.query.empty()) {
        line += ' ' + request.query;
    }
    // char is signed on some targets only.
    const auto is_control = [](char c) { return static_cast<unsigned char>(c) < ' '; };
    std::replace_if(line.begin(), line.end(), is_control, '?');
    std::ofstream log(request_log_path, std::ios::app);
    log << line << '\n';
    log.close();
    if (!log.good()) {
        std::cerr << "backend: " << request_log_path << " cannot be written\n";
    }
}

std::string parameter(const FCGX_Request& fcgi, const char* name) {
    const char* value = FCGX_GetParam(name, fcgi.envp);
    return value == nullptr ? "" : value;
}

void serve(const FCGX_Request& fcgi, Gateway& gateway) {
    const Request request{parameter(fcgi, "REQUEST_METHOD"), parameter(fcgi, "PATH_INFO"),
                          parameter(fcgi, "QUERY_STRING")};
    record(request);
    const Answer answer = answer_to(request, gateway);
    const std::string page = std::string("Status: ") + answer.status +
                             "\r\nContent-Type: text/plain\r\n\r\n" + answer.text;
    FCGX_PutStr(page.data(), static_cast<int>(page.size()), fcgi.out);
}

}  // namespace

int main() {
    Schema schema(schema_path);
    Store store(store_path, schema);
    Gateway gateway{std::move(schema), std::move(store)};
    FCGX_Request fcgi;
    if (FCGX_Init() != 0 || FCGX_InitRequest(&fcgi, 0, 0) != 0) {
        std::cerr << "backend: not started as a FastCGI program\n";
        return 1;
    }
    std::ofstream(process_id_path, std::ios::trunc) << getpid() << '\n';
    std::cout << "ready" << std::endl;
    while (FCGX_Accept_r(&fcgi) == 0) {
        serve(fcgi, gateway);
        FCGX_Finish_r(&fcgi);
    }
    return 0;
}
