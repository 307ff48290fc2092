#pragma once

#include "webserver/WebServer.h"

class ProgramFolder;
class Transceiver;

namespace Api {

// Before a capture asked for through the API: no other capture waits, the
// desktop's learning window is closed and the transceiver is open. False
// with the refusal sent; capturing is set while the transceiver opens.
bool ReadyToCapture(const ProgramFolder& folder, Transceiver& device, bool& capturing,
                    const FrontReply& r);

} // namespace Api
