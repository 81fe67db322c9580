#include "shell/state.h"

// The stream library comes first, so that it outlives the globals below: they are built in the
// order they stand here and destroyed in the reverse order.
#include <iostream>  // IWYU pragma: keep

Catalogue _gAdminConParts;
Catalogue _gExtensionConfParts;
std::list<std::string> _gQueryString;
bool _gDoExit = false;
