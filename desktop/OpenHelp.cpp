#include "desktop/OpenHelp.h"

#include "core/Help.h"

#include <QDesktopServices>
#include <QLoggingCategory>
#include <QMessageBox>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcHelp, "kestrava.help")
} // namespace

bool OpenHelp(const QString& page, QWidget* parent) {
    const QUrl url = HelpPageUrl(page);
    QString problem;
    if (url.isEmpty())
        problem = u"ヘルプファイルが見つかりません。"_s;
    else if (!QDesktopServices::openUrl(url))
        problem = u"ヘルプを開けませんでした。\n"_s + url.toLocalFile();
    if (problem.isEmpty())
        return true;
    qCWarning(lcHelp).noquote() << "help page" << page << "not shown";
    QMessageBox::warning(parent, u"Kestrava"_s, problem);
    return false;
}
