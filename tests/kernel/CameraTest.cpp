// The camera against the kernel's vivid driver (loaded by cases/40-camera.sh).
#include "camera/Camera.h"
#include "camera/CameraDialogs.h"
#include "kernel/Lane.h"
#include "support/HttpClient.h"
#include "support/ProgramProcess.h"
#include "support/ScriptedPrompt.h"
#include "support/TempFolder.h"

#include <QComboBox>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const QString Video = u"/dev/video0"_s;

int Shell(const QString& command) {
    return QProcess::execute(u"sh"_s, {u"-c"_s, u"{ "_s + command + u"; } >/dev/null 2>&1"_s});
}

// Everything this process writes to stderr meanwhile (libv4l prints there).
class StderrCapture {
public:
    StderrCapture() {
        file_.open();
        saved_ = dup(2);
        dup2(file_.handle(), 2);
    }
    ~StderrCapture() { restore(); }
    QByteArray text() {
        restore();
        file_.seek(0);
        return file_.readAll();
    }

private:
    void restore() {
        if (saved_ < 0)
            return;
        dup2(saved_, 2);
        ::close(saved_);
        saved_ = -1;
    }
    QTemporaryFile file_;
    int saved_ = -1;
};

struct VividCamera {
    VividCamera() {
        t.settings.WriteIni(u"Camera", u"Device", Video);
        t.settings.WriteIni(u"Options", u"TakePic", u"1");
    }
    // Waits for the next frame; the picture then.
    QImage fresh() {
        return WaitForSignal(&camera, &Camera::frameArrived, 3000) ? camera.frame() : QImage();
    }
    TempFolder t;
    ScriptedPrompt prompt;
    Camera camera{t.folder, t.settings, prompt};
};

// The remote page with the camera on, and the picture it points to.
struct Page {
    qint64 ms = 0;
    bool ok = false;
    QByteArray jpeg;
};
Page FetchPage(quint16 port) {
    Page p;
    QElapsedTimer timer;
    timer.start();
    const QByteArray page =
        Fetch(port, "GET /remote4.asp?DevID=1&Device=TV HTTP/1.1\r\nHost: localhost\r\n\r\n");
    p.ms = timer.elapsed();
    p.ok = page.startsWith("HTTP/1.1 200") && page.contains("pic/pict.jpg");
    p.jpeg = BodyOf(Fetch(port, "GET /pic/pict.jpg HTTP/1.1\r\nHost: localhost\r\n\r\n"));
    return p;
}

// Whole: it decodes, it ends where a JPEG ends, and it is the size pages show.
bool WholePicture(const QByteArray& jpeg) {
    return jpeg.endsWith("\xff\xd9") && QImage::fromData(jpeg, "JPEG").size() == QSize(320, 240);
}

// The program headless on vivid, with the camera option on.
struct Instance {
    static QString prepared(const QTemporaryDir& dir) {
        SettingsStore settings(dir.path() + u"/setting.ini"_s);
        settings.WriteIni(u"Tira", u"Device", u"sim");
        settings.WriteIni(u"WebServer", u"Port", u"0");
        settings.WriteIni(u"Options", u"TakePic", u"1");
        settings.WriteIni(u"Camera", u"Device", Video);
        settings.WriteIni(u"Remote-1", u"Device", u"TV");
        settings.WriteIni(u"Remote-1", u"Design", u"4");
        return dir.path();
    }
    QTemporaryDir dir;
    ProgramProcess program{{u"--headless"_s, u"--home"_s, prepared(dir)}};
};

} // namespace

TEST(KernelCamera, StreamsAtItsRateAndItsMenusWork) {
    VividCamera v;
    StderrCapture err;
    ASSERT_TRUE(v.camera.start());
    ASSERT_FALSE(v.fresh().isNull());
    int frames = 0;
    QObject::connect(&v.camera, &Camera::frameArrived, [&] { ++frames; });
    const double cpu = CpuSeconds(getpid());
    QElapsedTimer timer;
    timer.start();
    WaitMs(4000);
    const double seconds = timer.elapsed() / 1000.0;
    const double cpuPercent = 100 * (CpuSeconds(getpid()) - cpu) / seconds;
    const double fps = frames / seconds;
    EXPECT_TRUE(v.camera.takePic());
    const QByteArray log = err.text();
    Figures(u"%1 fps, CPU %2 %"_s.arg(fps, 0, 'f', 1).arg(cpuPercent, 0, 'f', 1));
    EXPECT_GE(fps, 2); // asked for five a second
    EXPECT_LE(fps, 7);
    EXPECT_LT(cpuPercent, 10);
    EXPECT_TRUE(log.isEmpty()) << log.left(300).toStdString();
    EXPECT_TRUE(WholePicture(v.t.readFile(u"pic/pict.jpg")));

    // Every format offered gives pictures, at its smallest and largest size.
    FormatDialog formats(v.camera);
    QStringList offered;
    QString last;
    int tried = 0;
    for (int i = 0; i < formats.formatBox()->count(); ++i) {
        formats.formatBox()->setCurrentIndex(i);
        const quint32 fourcc = formats.formatBox()->itemData(i).toUInt();
        offered << FourccText(fourcc);
        const bool main =
            fourcc == FourccFromText(u"YUYV"_s) || fourcc == FourccFromText(u"MJPG"_s);
        for (int s : {0, formats.sizeBox()->count() - 1}) {
            if (!main && (s > 0 || i % 8 != 0))
                continue; // the common ones fully, a sample of the rest
            formats.sizeBox()->setCurrentIndex(s);
            const QSize size = formats.sizeBox()->currentData().toSize();
            formats.accept();
            const std::pair<quint32, QSize> now{fourcc, size};
            EXPECT_EQ(v.camera.format(), now) << FourccText(fourcc).toStdString();
            EXPECT_EQ(v.fresh().size(), QSize(320, 240))
                << FourccText(fourcc).toStdString() << " " << size.width();
            last = FourccText(fourcc);
            ++tried;
        }
    }
    Figures(u"%1 formats offered, %2 tried;"_s.arg(offered.size()).arg(tried));
    EXPECT_TRUE(offered.contains(u"YUYV"_s)) << offered.join(u' ').toStdString();
    EXPECT_GT(formats.sizeBox()->count(), 1);
    EXPECT_EQ(v.t.settings.ReadIni(u"Camera", u"PixelFormat"), last);

    // The device's own controls, a full 32-bit range among them.
    ControlsDialog controls(v.camera);
    auto control = [&](const QString& name) {
        for (const SourceControl& c : v.camera.controls())
            if (c.name == name)
                return c;
        return SourceControl{};
    };
    auto* brightness = controls.findChild<QSpinBox*>(u"Brightness"_s);
    ASSERT_TRUE(brightness);
    brightness->setValue(control(u"Brightness"_s).value + 10);
    EXPECT_EQ(control(u"Brightness"_s).value, brightness->value());
    auto* int32 = controls.findChild<QSpinBox*>(u"Integer 32 Bits"_s);
    ASSERT_TRUE(int32);
    EXPECT_EQ(int32->parentWidget()->findChild<QSlider*>()->pageStep(), 429496729);
    auto* menu = controls.findChild<QComboBox*>(u"Menu"_s);
    ASSERT_TRUE(menu);
    emit menu->activated(menu->count() - 1);
    EXPECT_EQ(control(u"Menu"_s).value, menu->itemData(menu->count() - 1).toInt());
    controls.defaultButton()->click();
    EXPECT_EQ(control(u"Brightness"_s).value, control(u"Brightness"_s).defaultValue);
    Figures(u"%1 controls"_s.arg(v.camera.controls().size()));
    EXPECT_TRUE(v.prompt.shown.isEmpty()) << v.prompt.shown.join(u' ').toStdString();
}

// Pages answer with a fresh whole picture, the last one while unplugged, fresh ones once back.
TEST(KernelCamera, PagesAnswerWithAFreshPictureAcrossAnUnplug) {
    Instance p;
    const quint16 port = p.program.webPort();
    ASSERT_NE(port, 0) << p.program.log().toStdString();
    QStringList times;
    QByteArray before;
    for (int i = 0; i < 3; ++i) {
        WaitMs(400); // more than a frame apart
        const Page page = FetchPage(port);
        times << QString::number(page.ms);
        EXPECT_TRUE(page.ok);
        EXPECT_TRUE(WholePicture(page.jpeg)) << i;
        EXPECT_NE(page.jpeg, before) << i; // vivid draws the time: a new frame differs
        before = page.jpeg;
    }
    const double cpu = CpuSeconds(p.program.process.processId());
    WaitMs(3000);
    const double cpuPercent = 100 * (CpuSeconds(p.program.process.processId()) - cpu) / 3;
    Figures(u"pages %1 ms, program CPU %2 %"_s.arg(times.join(u'/')).arg(cpuPercent, 0, 'f', 1));
    EXPECT_LT(cpuPercent, 10);
    EXPECT_FALSE(p.program.log().contains(Video)) << p.program.log().toStdString();

    // The open device keeps the module: unbinding it is the unplug.
    const bool heldModule = Shell(u"rmmod vivid"_s) != 0;
    if (heldModule) {
        ASSERT_EQ(Shell(u"echo vivid.0 > /sys/bus/platform/drivers/vivid/unbind"_s), 0);
    }
    ASSERT_TRUE(p.program.waitForLog(u"/dev/video0 gone"_s, 5000)) << p.program.log().toStdString();
    // The device is let go of: the module unloads now.
    EXPECT_EQ(Shell(u"rmmod vivid"_s), heldModule ? 0 : 1);
    const double goneCpu = CpuSeconds(p.program.process.processId());
    const Page gone = FetchPage(port);
    WaitMs(2500);
    const double goneCpuPercent = 100 * (CpuSeconds(p.program.process.processId()) - goneCpu) / 2.5;
    EXPECT_TRUE(gone.ok);
    EXPECT_TRUE(WholePicture(gone.jpeg)); // the last picture
    EXPECT_LT(goneCpuPercent, 10);

    QElapsedTimer back;
    back.start();
    ASSERT_EQ(Shell(u"modprobe vivid n_devs=1"_s), 0);
    ASSERT_TRUE(p.program.waitForLog(u"camera back on"_s, 5000)) << p.program.log().toStdString();
    WaitMs(400);
    const Page again = FetchPage(port);
    const qint64 backMs = back.elapsed();
    EXPECT_TRUE(again.ok);
    EXPECT_TRUE(WholePicture(again.jpeg));
    EXPECT_NE(again.jpeg, gone.jpeg);
    Figures(u"%1; page while gone %2 ms, CPU %3 %, fresh picture %4 ms after modprobe"_s
                .arg(heldModule ? u"rmmod refused while open, unbound"_s : u"rmmod"_s)
                .arg(gone.ms)
                .arg(goneCpuPercent, 0, 'f', 1)
                .arg(backMs));
    EXPECT_FALSE(p.program.log().contains(u"libv4l"_s)) << p.program.log().toStdString();
}
