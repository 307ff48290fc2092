#pragma once

#include <QStringView>

// True when the text holds a control character (U+0000-001F, DEL, U+0080-009F)
// or half of a surrogate pair. No name a person gives (a remote, a key, a
// reservation's) may: names become setting.ini lines, file names, page text
// and rows of files, and each of those would cut or split such a name.
bool HasControlOrBrokenChar(QStringView text);
