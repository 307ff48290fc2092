#include "desktop/AboutWindow.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {
const QString AboutDisclaimer =
    u"本ソフトウェアは無保証です。本ソフトウェアの使用により生じたいかなる損害についても、"
    u"作者は一切の責任を負いません。\n"
    u"離れた場所から機器を操作するときは、周囲の安全に十分ご注意ください。"_s;
} // namespace

AboutWindow::AboutWindow(const QString& webUrl, QWidget* parent) : QDialog(parent) {
    setObjectName(u"frmAbout"_s);
    setWindowTitle(u"バージョン情報"_s);
    setAttribute(Qt::WA_DeleteOnClose);
    auto* layout = new QVBoxLayout(this);

    auto* name = new QLabel(u"Kestrava（ケストラバ）"_s, this);
    QFont big = name->font();
    big.setPointSizeF(big.pointSizeF() * 1.5);
    big.setBold(true);
    name->setFont(big);
    layout->addWidget(name);

    auto* version = new QLabel(u"バージョン "_s + QString::fromLatin1(KESTRAVA_VERSION), this);
    version->setObjectName(u"lblVersion"_s);
    layout->addWidget(version);
    layout->addWidget(new QLabel(u"学習型赤外線リモコン／Webサーバー"_s, this));

    auto* disclaimer = new QLabel(AboutDisclaimer, this);
    disclaimer->setWordWrap(true);
    disclaimer->setMinimumWidth(420);
    layout->addSpacing(6);
    layout->addWidget(disclaimer);

    auto* link = new QLabel(this);
    link->setObjectName(u"lblLink"_s);
    link->setText(u"Webリモコン: <a href=\"%1\">%1</a>"_s.arg(webUrl.toHtmlEscaped()));
    link->setTextFormat(Qt::RichText);
    link->setOpenExternalLinks(true);
    layout->addSpacing(6);
    layout->addWidget(link);

    auto* buttons = new QDialogButtonBox(this);
    QPushButton* ok = buttons->addButton(u"OK"_s, QDialogButtonBox::AcceptRole);
    ok->setDefault(true);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    layout->addWidget(buttons);
    layout->setSizeConstraint(QLayout::SetFixedSize);
}
