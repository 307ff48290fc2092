#pragma once

#include <QString>

class SettingsStore;

// The address mail's account as a form gives it. The switches are stored
// when they are clicked; the fields only when the form is saved.
struct MailSettings {
    bool notify = false;
    QString to, from, smtpServer;
    bool auth = false;
    bool popBeforeSmtp = false;
    QString user, password, popServer;

    // The warning for the first field that cannot work, or an empty text.
    QString addressProblem() const;
    QString authProblem() const;
    // The fields, the password scrambled.
    void store(SettingsStore& settings) const;
};
