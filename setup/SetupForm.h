#pragma once

// Small helpers the settings dialog's pages share.

#include "desktop/OpenHelp.h"

#include <QLabel>
#include <QLineEdit>
#include <QString>

namespace setupform {

template <typename T> T* named(T* w, const QString& name) {
    w->setObjectName(name);
    return w;
}

// A link to a page of the help, opened in the browser.
inline QLabel* helpLink(const QString& name, const QString& caption, const QString& page,
                        QWidget* parent) {
    auto* l = named(
        new QLabel(QStringLiteral("<a href=\"%1\">%2</a>").arg(page, caption.toHtmlEscaped())),
        name);
    QObject::connect(l, &QLabel::linkActivated, parent,
                     [parent](const QString& target) { OpenHelp(target, parent); });
    return l;
}

inline QLineEdit* field(const QString& name, bool secret = false) {
    auto* e = named(new QLineEdit, name);
    if (secret)
        e->setEchoMode(QLineEdit::Password);
    return e;
}

inline QString bit(bool on) {
    return on ? QStringLiteral("1") : QStringLiteral("0");
}

} // namespace setupform
