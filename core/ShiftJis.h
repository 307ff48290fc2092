#pragma once

#include <QByteArray>
#include <QString>
#include <QStringView>

// Text crosses every boundary of the program (files, sockets, settings) in the
// Windows Japanese code page, CP932. Inside, text is QString.
namespace ShiftJis {

// Characters CP932 cannot hold become "?", one per character, as Windows does.
QByteArray Encode(QStringView text);

// Bytes that are not valid CP932 become U+FFFD; never fails.
QString Decode(QByteArrayView bytes);

// Length of the text once encoded: full-width characters count 2.
qsizetype ByteLength(QStringView text);

} // namespace ShiftJis

// A string of n ideographic spaces (U+3000).
QString WideSpaces(int n);
