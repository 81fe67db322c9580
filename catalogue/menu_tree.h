#pragma once

// The configuration parts that the web interface offers in its menu.

#include <string>

/// Fills the two catalogues from the menu tree, once, before the login. Without a readable menu
/// tree they stay empty. Reports nothing.
void load_menu_tree();

/// The name of the part that a menu item opens: its header up to ".cgi" and after the last slash.
/// "/cgi-bin/voicemail.cgi" gives "voicemail".
std::string menu_item_name(const std::string& header);
