#include "api/CaptureStart.h"

#include "api/ApiReply.h"
#include "infrared/Transceiver.h"
#include "learning/LearningStore.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

bool Api::ReadyToCapture(const ProgramFolder& folder, Transceiver& device, bool& capturing,
                         const FrontReply& r) {
    if (capturing || device.CaptureWaiting == 1) {
        error(r, 409, "busy", u"ほかの学習が信号を待っています。終わってからもう一度どうぞ。"_s);
        return false;
    }
    // The desktop's learning window keeps its signals in 1.tmp, 2.tmp, ...
    if (QFileInfo::exists(LearningSession(folder).TempPath(1))) {
        error(r, 409, "busy", u"学習ウィンドウが開いています。閉じてからもう一度どうぞ。"_s);
        return false;
    }
    if (device.TiraActive)
        return true;
    if (!device.PortIsSet()) {
        error(r, 502, "transceiver_failed", Transceiver::PortUnsetText);
        return false;
    }
    capturing = true;
    const bool opened = device.ActivateTira(device.ConfiguredPort());
    capturing = false;
    if (!opened)
        error(r, 502, "transceiver_failed", device.CannotActivateMessage());
    return opened;
}
