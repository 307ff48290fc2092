#include "core/Help.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

bool holdsHelp(const QString& dir) {
    return !dir.isEmpty() && QFileInfo(dir + u"/index.html"_s).isFile();
}

} // namespace

QString FindHelpFolder(const QString& envDir, const QString& programDir) {
    // A folder named on purpose is never silently swapped for another one.
    if (!envDir.isEmpty())
        return holdsHelp(envDir) ? QDir(envDir).absolutePath() : QString();
    if (!programDir.isEmpty()) {
        const QString installed = QDir::cleanPath(programDir + u"/../share/kestrava/help"_s);
        if (holdsHelp(installed))
            return installed;
    }
    return {};
}

QString HelpFolder() {
    const QString programDir =
        QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : QString();
    return FindHelpFolder(qEnvironmentVariable("KESTRAVA_HELP_DIR"), programDir);
}

QUrl HelpPageUrl(const QString& page) {
    const qsizetype hash = page.indexOf(u'#');
    const QString file = hash < 0 ? page : page.left(hash);
    const QString folder = HelpFolder();
    if (folder.isEmpty() || file.isEmpty())
        return {};
    const QString path = QDir(folder).filePath(file);
    if (!QFileInfo(path).isFile())
        return {};
    QUrl url = QUrl::fromLocalFile(path);
    if (hash >= 0)
        url.setFragment(page.mid(hash + 1));
    return url;
}
