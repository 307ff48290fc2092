#pragma once

#include <QString>
#include <QUrl>

// The help pages: HTML files opened in the user's browser.

// The first of these that holds index.html: envDir when given (and then only
// it), programDir/../share/kestrava/help. Empty when none does. The build
// tree links its share/kestrava/help to the source tree's pages, so a build
// finds them the way an installation does.
QString FindHelpFolder(const QString& envDir, const QString& programDir);

// FindHelpFolder for this process: $KESTRAVA_HELP_DIR, else the copy beside
// the executable.
QString HelpFolder();

// A file URL for a page of the help folder; a fragment is kept
// ("learning.html#aircon"). Empty when the folder or the page is missing.
QUrl HelpPageUrl(const QString& page);
