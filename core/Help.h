#pragma once

#include <QString>
#include <QUrl>

// The help pages: HTML files opened in the user's browser.

// The first of these that holds index.html: envDir when given (and then only
// it), programDir/../share/doc/kestrava/help, sourceDir. Empty when none does.
QString FindHelpFolder(const QString& envDir, const QString& programDir, const QString& sourceDir);

// FindHelpFolder for this process: $KESTRAVA_HELP_DIR, the installed copy
// beside the executable, the source tree it was built from.
QString HelpFolder();

// A file URL for a page of the help folder; a fragment is kept
// ("learning.html#aircon"). Empty when the folder or the page is missing.
QUrl HelpPageUrl(const QString& page);
