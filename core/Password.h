#pragma once

#include <QString>
#include <QStringView>

// The stored form of the four passwords. mode "SET" turns each character into
// a four-character token, "RESET" turns tokens back (a piece that is no token
// adds nothing); the mode is compared without case, any other mode gives "".
// Passwords are seven-bit ASCII: "SET" of a text holding any other character
// gives "" (check with IsStorablePassword first).
QString ScramblePassword(QStringView mode, QStringView text);

bool IsStorablePassword(QStringView text);
