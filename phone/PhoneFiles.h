#pragma once

#include <QByteArray>
#include <QString>

// The phone page's files, served from the program itself under /m/.
namespace Phone {

// Whether the path (with its query) is the phone page's: /m or anything under /m/.
bool IsPhonePath(const QString& path);

// The whole answer to a GET of a phone path: the file, a redirect from /m to
// /m/, or 404 for a name the page does not have.
QByteArray Response(const QString& path, const QString& date);

} // namespace Phone
