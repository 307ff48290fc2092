#pragma once

#include <QMainWindow>

#include <functional>

class Camera;
class ProgramFolder;
class QLabel;
class QListWidget;
class QPushButton;
class QAction;
class SettingsStore;

// The camera's window: the live picture, the devices, and test buttons. It
// stays above other windows; while TakePic is on it only hides when closed,
// unless the program is ending.
class PreviewWindow : public QMainWindow {
    Q_OBJECT
public:
    PreviewWindow(Camera& camera, const ProgramFolder& folder, SettingsStore& settings,
                  std::function<bool()> ending, QWidget* parent = nullptr);

    QLabel* picture() const { return picture_; }
    QListWidget* deviceList() const { return list_; }
    QPushButton* startButton() const { return start_; }
    QPushButton* stopButton() const { return stop_; }
    QPushButton* capButton() const { return cap_; }
    QPushButton* closeButton() const { return close_; }
    QPushButton* saveButton() const { return save_; }
    QAction* alwaysShowAction() const { return alwaysShow_; }
    QAction* sourceAction() const { return source_; }
    QAction* formatAction() const { return format_; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void refresh();
    void updateButtons();

    Camera& camera_;
    const ProgramFolder& folder_;
    SettingsStore& settings_;
    std::function<bool()> ending_;
    QLabel* picture_;
    QListWidget* list_;
    QPushButton *start_, *stop_, *cap_, *close_, *save_;
    QAction *alwaysShow_, *source_, *format_;
};
