#pragma once

#include <QWidget>

class Application;
class QLabel;

// The main window. It shows the application and forwards to it; closing it
// closes the program.
class MainWindow : public QWidget {
    Q_OBJECT
public:
    explicit MainWindow(Application& app, QWidget* parent = nullptr);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    Application& app_;
    QLabel* lblAddr_;
};
