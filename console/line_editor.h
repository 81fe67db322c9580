#pragma once

// Keyboard input. Nothing else uses the line editor.

#include <cstdlib>
#include <memory>
#include <optional>

#include "console/secret.h"

struct FreeDeleter {
    void operator()(char* text) const { std::free(text); }  // NOLINT(*-no-malloc)
};

/// A line returned by the editor, released with free.
using LineBuffer = std::unique_ptr<char, FreeDeleter>;

/// The shell's prompt. Each question of backup and restore begins with it.
constexpr const char* PROMPT = "tessel:> ";

/// Makes keys harmless: pasted text counts as typed, no editor bug lets a key end the session, and
/// no key reveals accounts before the login. Call before reading any input.
void protect_line_editor();

/// Names the application to the editor and installs tessel_completion. Call after the login, which
/// runs with the editor's defaults.
void init_line_editor();

/// Prompts for a line and returns it exactly as typed. Returns null at the end of input, on Ctrl-C,
/// on a request to end the session, and if the terminal is lost in mid-line.
LineBuffer read_line(const char* prompt);

/// Prompts for a secret without echo. Returns nothing on Ctrl-C, on a request to end the session,
/// and if nothing can be read. Keeps no other copy.
std::optional<Secret> read_password(const char* prompt);

/// Whether Ctrl-C ended the last question. The cursor is then on a new line.
bool called_off();

/// Adds a line to the history, which lasts for this session only.
void remember_line(const char* line);

/// Called on Tab. Offers nothing, so that the editor completes file names.
char** tessel_completion(const char* text, int start, int end);
