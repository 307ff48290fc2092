#pragma once

#include <QString>
#include <QStringView>

// True when the text holds a control character (U+0000-001F, DEL, U+0080-009F)
// or half of a surrogate pair. No name a person gives (a remote, a key, a
// reservation's) may: names become setting.ini lines, file names, page text
// and rows of files, and each of those would cut or split such a name.
bool HasControlOrBrokenChar(QStringView text);

// A name as users have it (a remote's, a key's), made one file name that stays
// in its folder. Each character a file name cannot hold (/ \ : * ? " < > |,
// control characters and NUL) becomes '_'. As a whole file name (whole) also
// each leading dot, so that "..", "." and hidden names cannot arise, and a
// reserved device name (CON, NUL, COM1, ...) gets a '_' in front; an empty
// name becomes "_". As part of a longer name ("<remote>-<key>.bin") only the
// characters are mapped. A name with none of these comes back as it is.
QString FileNameOf(QStringView name, bool whole = true);
