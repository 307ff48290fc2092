#pragma once

#include "webserver/WebServer.h"

// The phone page: its files ship inside the program and are served under /m/
// as a front of the web server, beside the classic pages.
namespace Phone {

FrontRoute Route();

} // namespace Phone
