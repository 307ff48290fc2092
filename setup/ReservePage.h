#pragma once

#include <QWidget>

#include <functional>

class SettingsStore;
class QCheckBox;
class QComboBox;
class QPushButton;

// The settings dialog's page for reservations: the pause between signals of
// one moment, and the camera's picture on the pages.
class ReservePage : public QWidget {
    Q_OBJECT
public:
    struct Parts {
        SettingsStore& settings;
        std::function<void(bool on)> takePic; // stores the option; the stream follows
        std::function<void()> cameraSettings; // the preview window
    };
    explicit ReservePage(Parts parts, QWidget* parent = nullptr);

    void load();

private:
    Parts parts_;
    bool loading_ = true;
    QComboBox* cmbInterval_;
    QCheckBox* chkTakePic_;
    QPushButton* cmdTakePicSetup_;
};
