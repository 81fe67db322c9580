#pragma once

// The state of a session. It lives as long as the process and is used by one thread.

#include <list>
#include <map>
#include <string>

/// Captions of configuration parts by name, in byte order of the names.
using Catalogue = std::map<std::string, std::string>;
using ConfigPart = Catalogue::value_type;

/// Parts that exist once on the device, and parts that exist once per extension. Filled by
/// load_menu_tree, constant afterwards.
extern Catalogue _gAdminConParts;
extern Catalogue _gExtensionConfParts;

/// Settings typed since the last save, oldest first. Filled by dispatch_line, emptied by save.
extern std::list<std::string> _gQueryString;

/// Set by the exit command; ends the command loop.
extern bool _gDoExit;
