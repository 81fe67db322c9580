#pragma once

// The only way to run a program of the web back end: the device's FastCGI client takes a request
// from the environment and writes the program's answer to its standard output.

#include <cstdio>
#include <string>

/// Called with the client's output once the client has started.
using CgiConsumer = void (*)(std::FILE* output);

/// Stands for the query of a request without one.
constexpr const char* NO_QUERY = nullptr;

/// Runs the CGI program of that name, such as "putconf.cgi", passes its output to the consumer and
/// returns when the client has ended. The query is passed on unencoded. Afterwards, even if the
/// consumer throws, none of the variables set remains in the environment. If the client cannot be
/// started, the consumer is not called and nothing is reported. Returns 0. Throws std::bad_alloc,
/// and starts nothing, if there is no memory for a request with a query.
int run_cgi_program(const std::string& cgi_name, const char* query, CgiConsumer consumer);

/// Consumer that reads nothing.
void close_at_once(std::FILE* output);

/// Reads the output to its end and discards it.
void drain(std::FILE* output);

/// Reads the output to its end and returns it.
std::string collect(std::FILE* output);
