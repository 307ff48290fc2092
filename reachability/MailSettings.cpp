#include "reachability/MailSettings.h"

#include "core/Password.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"

using namespace Qt::StringLiterals;

namespace {
// The checks are only a guard against typing slips: a mail address has an
// @, a server name a dot.
bool lacks(const QString& text, QChar needed) {
    return text.isEmpty() || !text.contains(needed);
}
} // namespace

QString MailSettings::addressProblem() const {
    if (!notify)
        return {};
    if (lacks(to, u'@'))
        return u"通知先アドレスが正しくありません。"_s;
    if (lacks(from, u'@'))
        return u"送信者アドレスが正しくありません。"_s;
    if (lacks(smtpServer, u'.'))
        return u"送信サーバーが正しくありません。"_s;
    return {};
}

QString MailSettings::authProblem() const {
    if (!auth)
        return {};
    if (user.isEmpty())
        return u"ユーザーIDが正しくありません。"_s;
    if (password.isEmpty())
        return u"パスワードが正しくありません。"_s;
    if (popBeforeSmtp && lacks(popServer, u'.'))
        return u"受信サーバーが正しくありません。"_s;
    return {};
}

void MailSettings::store(SettingsStore& s) const {
    s.Write(Key::NotifyTo, to);
    s.Write(Key::MailFrom, from);
    s.Write(Key::SMTPServer, smtpServer);
    s.Write(Key::MailUser, user);
    s.Write(Key::MailPass, ScramblePassword(u"SET", password));
    s.Write(Key::POPServer, popServer);
}
