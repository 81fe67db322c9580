#pragma once

/// The get command: prints one configuration part, "part" or "part extension", below a heading.
/// Returns 0 when the text was generated, -1 after an error message.
int handle_get(char* argument) noexcept;
