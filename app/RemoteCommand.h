#pragma once

#include <QStringList>

class ProgramFolder;

// --press REMOTE KEY, --scene NAME and --list [--json]: asks the instance
// running on the folder, through its API on 127.0.0.1 with the folder's login.
// Returns the exit status: 0 done, 1 refused or failed (the reason on stderr),
// NoInstance when none runs or answers.
constexpr int NoInstance = 3;
int RunRemoteCommand(const ProgramFolder& folder, const QString& command,
                     const QStringList& arguments, bool json = false);
