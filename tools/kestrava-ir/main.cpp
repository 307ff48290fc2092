// kestrava-ir: checks an infrared transceiver without the program. Lists the
// devices that may be one, captures a signal into a signal file, sends one,
// and prints a signal's durations so that it can be attached to a report or
// replayed with ir-ctl.
#include "core/Log.h"
#include "tools/kestrava-ir/Tool.h"

#include <QCoreApplication>

#include <cstdio>
#include <optional>

using namespace Qt::StringLiterals;

namespace irtool {
namespace {

// The seconds of a capture: a whole number 1 to 600, or nothing.
std::optional<int> secondsOf(const QString& text) {
    bool ok = false;
    const int n = text.toInt(&ok);
    return ok && n >= 1 && n <= 600 ? std::optional<int>(n) : std::nullopt;
}

int run(const QStringList& args) {
    const QString cmd = args.value(0);
    const qsizetype n = args.size();
    if (cmd == u"list" && (n == 1 || (n == 2 && args[1] == u"--json")))
        return list(n == 2);
    if (cmd == u"show" && n == 2)
        return show(args[1], ShowAs::Text);
    if (cmd == u"show" && n == 3 && (args[2] == u"--mode2" || args[2] == u"--json"))
        return show(args[1], args[2] == u"--json" ? ShowAs::Json : ShowAs::Mode2);
    if (cmd == u"encode" && n == 3)
        return encode(args[1], args[2]);
    if (cmd == u"capture" && (n == 3 || n == 4)) {
        const auto seconds = n == 4 ? secondsOf(args[3]) : std::optional<int>(11);
        if (!seconds) {
            complain(u"'%1' is not a number of seconds (1 to 600)"_s.arg(args[3]));
            return 2;
        }
        return capture(args[1], args[2], *seconds);
    }
    if (cmd == u"convert")
        return convert(args.mid(1));
    if (cmd == u"climate" && n == 2 && args[1] == u"--list")
        return climateList();
    if (cmd == u"climate")
        return climate(args.mid(1));
    if (cmd == u"send" && n == 3)
        return send(args[1], args[2]);
    if (n == 1 && cmd == u"--version") {
        std::printf("kestrava-ir %s\n", KESTRAVA_VERSION);
        return 0;
    }
    if (commandNamed(cmd))
        complain(u"wrong arguments for '"_s + cmd + u"' (see: kestrava-ir "_s + cmd +
                 u" --help)"_s);
    else if (!cmd.isEmpty())
        complain(u"unknown command '"_s + cmd + u"'"_s);
    std::fputs(usage(nullptr).constData(), stderr);
    return 2;
}

} // namespace
} // namespace irtool

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    InstallLogHandler(false, "kestrava-ir");
    const QStringList args = app.arguments().mid(1);
    const QString cmd = args.value(0);
    // Help anywhere: of the command when one is named, else of them all.
    const bool help = cmd == u"help" || args.contains(u"--help"_s) || args.contains(u"-h"_s);
    if (help) {
        const irtool::Command* c = irtool::commandNamed(cmd == u"help" ? args.value(1) : cmd);
        std::fputs(irtool::usage(c).constData(), stdout);
        return 0;
    }
    return irtool::run(args);
}
