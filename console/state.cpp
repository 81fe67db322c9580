#include "console/state.h"

// Constructed in this order before main, destroyed in reverse order at exit.
Catalogue _gAdminConParts;
Catalogue _gExtensionConfParts;
std::list<std::string> _gQueryString;
bool _gDoExit = false;
