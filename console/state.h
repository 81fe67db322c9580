#pragma once

// What a session remembers. All of it lives as long as the process and is touched by one thread.

#include <list>
#include <map>
#include <string>

/// Configuration parts by name, in byte order of the names; the value is the caption.
using Catalogue = std::map<std::string, std::string>;
using ConfigPart = Catalogue::value_type;

/// Parts that exist once on the device, and parts that exist once per extension. Filled by
/// load_menu_tree and never changed afterwards.
extern Catalogue _gAdminConParts;
extern Catalogue _gExtensionConfParts;

/// Settings typed since the last save, oldest first. Filled by dispatch_line, emptied by save.
extern std::list<std::string> _gQueryString;

/// Set by the exit command; ends the command loop.
extern bool _gDoExit;
