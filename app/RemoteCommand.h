#pragma once

#include <QStringList>

class ProgramFolder;

// --press REMOTE KEY and --list: asks the instance running on the folder,
// through its API on 127.0.0.1 with the folder's login. Returns the exit
// status: 0 done, 1 refused or failed (the reason on stderr), 2 no instance.
int RunRemoteCommand(const ProgramFolder& folder, const QString& command,
                     const QStringList& arguments);
