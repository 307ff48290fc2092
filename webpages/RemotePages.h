#pragma once

#include "infrared/Transmission.h"

#include <QString>

#include <functional>

class Clock;
class Dispatcher;
class SettingsStore;
struct PageRequest;

// What the remote pages need from the infrared and camera parts.
struct RemotePageServices {
    // Sends button `button` of remote `devId`, both as the request gave them,
    // and returns when it has gone out (or not). Empty: every send fails.
    std::function<SendResult(const QString& devId, const QString& button)> send;
    // Shows or hides the camera preview. May be empty.
    std::function<void(bool visible)> showPreview;
    // Writes pic/pict.jpg from the newest frame, within 300 ms; false on
    // failure. Empty: there is no camera.
    std::function<bool()> takeSnapshot;
    // Told at each page built with the camera option off, so the camera
    // closes. May be empty.
    std::function<void()> cameraOff;
};

// remote1.asp to remote6.asp: the remote of one design drawn with pictures; a
// request with a Button sends it first. With Options/TakePic "1" the page
// carries a snapshot taken before it is built.
QString GraphicRemotePage(int design, const PageRequest& request, SettingsStore& settings,
                          const RemotePageServices& services);

// cremote.asp: the functions of one remote as plain links for phones.
QString CellRemotePage(const PageRequest& request, SettingsStore& settings, const Clock& clock,
                       const RemotePageServices& services);

// Routes remote1.asp to remote6.asp and cremote.asp.
void InstallRemotePages(Dispatcher& dispatcher, SettingsStore& settings, const Clock& clock,
                        RemotePageServices services);
