#pragma once

#include <QPixmap>
#include <QPoint>
#include <QString>
#include <QWidget>

#include <vector>

class QLabel;
class QPushButton;
class SettingsStore;
class Transceiver;
struct DesignLayout;

// A picture button of an on-screen remote: shows its pressed picture while
// the mouse is down on it and reports clicks to its window.
class RemoteButton : public QWidget {
    Q_OBJECT
public:
    RemoteButton(int id, const QString& picture, QWidget* parent);
    int id() const { return id_; }
    bool isDown() const { return down_; }
    void setDown(bool down);

signals:
    void clicked(int id);
    void doubleClicked(int id);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;

private:
    int id_;
    QPixmap off_, on_;
    bool down_ = false;
    bool armed_ = false; // a press began here: its release inside is a click
};

// One on-screen remote of design 1 to 6: a borderless body with rounded
// corners, the picture buttons, the function names under them and the device
// name. A click transmits while RemoteLive is set; otherwise it only reports
// the button with keyClicked (learning and editing).
class RemoteWindow : public QWidget {
    Q_OBJECT
public:
    RemoteWindow(int design, const bool& remoteLive, SettingsStore& settings, Transceiver& device,
                 QWidget* parent = nullptr);

    int design() const { return design_; }
    int buttonCount() const { return int(buttons_.size()); }

    void setDeviceName(const QString& name);
    QString deviceName() const;
    // The caption under button id, sized by FitLabel.
    void setFunction(int buttonId, const QString& function);
    // What a key shows before it has a function: "ボタン<id + 1>".
    static QString Placeholder(int buttonId);
    // The pixel size of a font of this many points at 96 dpi.
    static int PixelsOfPoints(int points);
    QString function(int buttonId) const;

    RemoteButton* imgB(int buttonId) const;
    QLabel* lblFunc(int buttonId) const;
    QLabel* lblDev() const { return lblDev_; }
    QPushButton* cmdClose() const { return cmdClose_; }

    // Window size in pixels per design.
    static QSize ClientSize(int design);
    static constexpr int TwipsPerPixel = 15;

signals:
    // A click while not live: the learning window takes the button.
    void keyClicked(int buttonId);
    // After a click was handled (sent, or reported by keyClicked).
    void buttonClicked(int buttonId);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void clickButton(int buttonId);
    void doubleClickButton(int buttonId);
    void placeAtStart();
    QString posKey() const;

    int design_;
    const DesignLayout* layout_;
    const bool& remoteLive_; // the launcher's
    SettingsStore& settings_;
    Transceiver& device_;
    QPixmap panelA_, panelB_;
    std::vector<RemoteButton*> buttons_; // by id
    std::vector<QLabel*> labels_;        // by id
    QLabel* lblDev_;
    QPushButton* cmdClose_;
    bool dragging_ = false;
    QPoint dragStart_; // press point within the window
};
