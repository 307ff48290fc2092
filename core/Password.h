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

// Whether two secrets are equal, in a time that tells nothing of where they
// differ or how long the expected one is.
bool SameSecret(QStringView given, QStringView expected);
