#pragma once

#include <QDialog>

class QComboBox;
class SettingsStore;

// The short port question asked where a transmission finds no transceiver
// set: a free port for the web server, written on OK.
class SpecifyPortWindow : public QDialog {
    Q_OBJECT
public:
    explicit SpecifyPortWindow(SettingsStore& settings, QWidget* parent = nullptr);

    QComboBox* ports() const { return cboPortNo_; }

private:
    SettingsStore& settings_;
    QComboBox* cboPortNo_;
};
