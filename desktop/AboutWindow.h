#pragma once

#include <QDialog>

// The about box: the version, a short disclaimer, and the program's own web
// page as a link.
class AboutWindow : public QDialog {
    Q_OBJECT
public:
    explicit AboutWindow(const QString& webUrl, QWidget* parent = nullptr);
};
