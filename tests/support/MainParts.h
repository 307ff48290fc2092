#pragma once

#include "app/Program.h"
#include "desktop/MainWindow.h"

// The main window's parts, taken from an application.
inline MainParts MainPartsOf(Program& app) {
    return {app.folder,       app.settings, app.clock,
            app.prompt,       app.events,   app.scheduler,
            app.addressWatch, app.power,    [&app] { app.Close(); }};
}
