#pragma once

#include <QWidget>

class Power;
class QLabel;
class QProgressBar;
class QPushButton;

// The countdown before the machine goes to sleep, with its cancel button. It
// follows the power object: shown at the start, closed at the end.
class SuspendWindow : public QWidget {
    Q_OBJECT
public:
    explicit SuspendWindow(Power& power, QWidget* parent = nullptr);

private:
    QLabel* label1_ = nullptr;
    QProgressBar* progressBar1_ = nullptr;
    QPushButton* command1_ = nullptr;
};
