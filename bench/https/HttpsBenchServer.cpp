// The web server alone, for bench/https/run.sh: the classic pages' files and
// the phone page on a plain and an HTTPS port, with the certificate read from
// the files named (the program gets its certificate elsewhere).
//
//   kestrava_https_bench_server HOME CERT.pem KEY.pem
#include "core/Clock.h"
#include "core/ProgramFolder.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "phone/PhoneFiles.h"
#include "webserver/Dispatcher.h"
#include "webserver/WebServer.h"

#include <QCoreApplication>
#include <QFile>
#include <QSslCertificate>
#include <QSslKey>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc != 4)
        return 2;
    ProgramFolder folder(QString::fromLocal8Bit(argv[1]));
    SettingsStore settings(folder.settingsPath());
    SystemClock clock;
    HeadlessPrompt prompt;
    Dispatcher dispatcher;
    WebServer server(folder, settings, clock, prompt, dispatcher);
    server.headless = true;
    server.AddFront(Phone::Route());
    QFile key(QString::fromLocal8Bit(argv[3]));
    if (!key.open(QIODevice::ReadOnly))
        return 2;
    QSslConfiguration tls;
    tls.setLocalCertificateChain(QSslCertificate::fromPath(QString::fromLocal8Bit(argv[2])));
    tls.setPrivateKey(QSslKey(key.readAll(), QSsl::Ec));
    server.SetTlsConfiguration(tls);
    if (!server.InitWebServer() || server.HttpsPort() == 0)
        return 1;
    return app.exec();
}
