#pragma once

#include "camera/V4l2Source.h"

#include <QImage>
#include <QObject>
#include <QString>
#include <QTimer>

#include <memory>

class ProgramFolder;
class SettingsStore;
class UserPrompt;

// The camera of the remote pages. Streams while Options/TakePic is "1", so a
// picture is written at once from the newest frame; closed otherwise.
// [Camera] Device picks the camera: empty for the first one, a card name or a
// device path, or "test" for a moving test pattern. [Camera] PixelFormat (four
// characters) and FrameSize ("640x480") keep the format chosen in the preview.
class Camera : public QObject {
    Q_OBJECT
public:
    Camera(const ProgramFolder& folder, SettingsStore& settings, UserPrompt& prompt,
           QString devDir = QStringLiteral("/dev"));
    ~Camera() override;

    // The capture devices to choose from, "test" not among them.
    QList<CaptureDevice> devices() const { return ListCaptureDevices(devDir_); }
    // Opens the camera of the settings. With none at all: the warning (a
    // notice nothing waits for when a web request asked), and TakePic is
    // switched off for good.
    bool start(bool fromRequest = false);
    void stop();
    // The TakePic option switched: stored, and the stream follows it.
    void SetTakePic(bool on);
    // Also while a camera that went away is waited for.
    bool running() const { return wanted_; }
    // The device streaming now: a path, "test", or empty when none.
    QString device() const { return devicePath_; }

    // The newest frame, 320 x 240; the last good one when the camera is gone.
    // Only a stream that has sent nothing yet is waited for, briefly.
    QImage frame();
    // Writes the newest frame to pic/pict.jpg; false leaves the old picture.
    bool takePic();
    // The same picture written elsewhere (the preview's test button).
    bool saveJpeg(const QString& path);

    // What the open camera offers; empty when none is open.
    QList<SourceControl> controls() const;
    // Sets the values in order, at once. When the device refuses one, those
    // already set go back to what they were, the warning shows, and false.
    bool setControls(const QList<std::pair<quint32, int>>& values);
    QList<SourceFormat> formats() const;
    std::pair<quint32, QSize> format() const;
    // Restarts the stream in this format and keeps it for the next open. When
    // the device refuses it, the warning shows and stream and settings stay.
    bool setFormat(quint32 fourcc, QSize size);

signals:
    void started();
    void stopped();
    void frameArrived();

private:
    bool open(bool quiet);
    void reopen();

    const ProgramFolder& folder_;
    SettingsStore& settings_;
    UserPrompt& prompt_;
    QString devDir_;
    std::unique_ptr<FrameSource> source_;
    QString devicePath_;
    QString deviceName_; // card name of the open camera, to find it again
    bool wanted_ = false;
    QImage last_;
    QTimer retry_; // opens a camera that went away again, once a second
};

// The warning shown when there is no camera.
extern const QString NoCameraText;
// The warnings shown when the camera refuses a setting.
extern const QString ControlRefusedText;
extern const QString FormatRefusedText;
