#pragma once

// Input from the keyboard. Nothing else uses the line editor.

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "console/secret.h"

struct FreeDeleter {
    void operator()(char* text) const { std::free(text); }  // NOLINT(*-no-malloc)
};

/// A line as the editor returned it, released with free.
using LineBuffer = std::unique_ptr<char, FreeDeleter>;

/// The shell's prompt, and how each question of a dialogue begins.
constexpr const char* PROMPT = "tessel:> ";

/// Makes standard output fully buffered, so that a flush is one write on a terminal too.
void prepare_streams();

/// Keeps keys from doing harm: pasted text counts as typed, no key ends the session through a bug
/// of the editor, and before the login none reveals accounts. To be called before anything is read.
void protect_line_editor();

/// Names the application to the editor and installs tessel_completion. To be called after the
/// login, which runs with the editor's defaults.
void init_line_editor();

/// Asks for a line. Null at the end of input, after a request to end the session, when the terminal
/// was lost in the middle of a line, and when the question was called off.
LineBuffer read_line(const char* prompt);

/// The same for one answer of a dialogue, exactly as typed.
std::optional<std::string> read_answer(const char* prompt);

/// Asks for a secret without echo. Nothing when it cannot be read, the session is to end or the
/// question was called off. No other copy is kept.
std::optional<Secret> read_password(const char* prompt);

/// Whether Ctrl-C ended the last of these questions. The cursor is then on a new line.
bool called_off();

/// Keeps a line for the arrow keys, for this session only.
void remember_line(const char* line);

/// Called on Tab. Offers nothing, so that the editor completes file names.
char** tessel_completion(const char* text, int start, int end);
