#pragma once

#include <QString>

class SettingsStore;
class UserPrompt;

// Starting with the desktop session through XDG autostart entries named
// kestrava.desktop: one for this user, one for everyone. Removing keeps the
// entry with Hidden=true, which the session then skips.
namespace AutoStart {

enum class Scope { User, Everyone };

// Where each scope's entry lives: $XDG_CONFIG_HOME/autostart (default
// ~/.config/autostart) and /etc/xdg/autostart.
QString EntryPath(Scope scope);

// The entry's text: the running binary on the given program folder.
QByteArray EntryText(const QString& programFolder, bool hidden);

// Writes the entry (hidden or not); false with the system's text in error.
bool Write(Scope scope, const QString& programFolder, bool hidden, QString* error);

// The three choices of Startup/WithWindows: 0 none, 1 this user, 2 everyone.
// A refused write is warned about with the system's text; the choice is
// stored all the same.
void Choose(int option, const QString& programFolder, SettingsStore& settings, UserPrompt& prompt);

} // namespace AutoStart
