#include "console/state.h"

// Built in this order before main, and destroyed in the reverse order at the end of the process.
Catalogue _gAdminConParts;
Catalogue _gExtensionConfParts;
std::list<std::string> _gQueryString;
bool _gDoExit = false;
