#pragma once

// The configuration parts that the web interface offers in its menu.

#include <string>

/// Fills both catalogues from the menu tree. Call once, before the login. If the menu tree cannot
/// be read, they stay empty; nothing is reported.
void load_menu_tree();

/// Returns the name of the part that a menu item opens: its header up to ".cgi" and after the last
/// slash. "/cgi-bin/voicemail.cgi" gives "voicemail".
std::string menu_item_name(const std::string& header);
