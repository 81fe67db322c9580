#pragma once

/// The list command: prints both catalogues. The argument is ignored; returns 0.
int handle_list(char* argument) noexcept;
