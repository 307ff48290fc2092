#pragma once

#include <QWidget>

class ProgramFolder;
class SettingsStore;
class UserPrompt;
class QButtonGroup;
class QCheckBox;
class QLineEdit;
class QRadioButton;

// The settings dialog's page for power control and the start at login.
class PowerPage : public QWidget {
    Q_OBJECT
public:
    struct Parts {
        const ProgramFolder& folder;
        SettingsStore& settings;
        UserPrompt& prompt;
    };
    explicit PowerPage(Parts parts, QWidget* parent = nullptr);

    void load();
    // OK: the account and the kind of sleep.
    void save();

signals:
    // PowerControl was switched: the main window shows or hides its suspend button.
    void powerControlChanged();

private:
    Parts parts_;
    bool loading_ = true;
    QCheckBox* chkPowerCon_;
    QLineEdit *txtPowerID_, *txtPowerPass_;
    QRadioButton *option1_, *option2_;
    QButtonGroup* optAutoStart_;
};
