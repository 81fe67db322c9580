#pragma once

// The one way to run a program of the web back end: the device's FastCGI client takes a request
// from the environment and writes the program's answer to its standard output.

#include <cstdio>
#include <string>

/// What is done with the client's output once the client has been started.
using CgiConsumer = void (*)(std::FILE* output);

/// The query of a request that has none.
constexpr const char* NO_QUERY = nullptr;

/// Runs the CGI program of that name, such as "putconf.cgi", and hands its output to the consumer;
/// returns when the client has ended. The query goes through as it is, without any encoding.
/// Afterwards every variable that was set is absent from the environment, also when the consumer
/// throws. A client that cannot be started is not reported: the consumer is then not called.
/// Returns 0, the result of removing the last variable. Throws std::bad_alloc, and starts nothing,
/// when there is no memory for a request with a query.
int run_cgi_program(const std::string& cgi_name, const char* query, CgiConsumer consumer);

/// Consumer that reads nothing.
void close_at_once(std::FILE* output);

/// Reads the output to its end and throws it away.
void drain(std::FILE* output);

/// Reads the output to its end and returns it.
std::string collect(std::FILE* output);
