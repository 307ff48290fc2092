#include "app/Demo.h"
#include "app/Display.h"
#include "app/Program.h"
#include "app/RemoteCommand.h"
#include "app/SignalWatcher.h"
#include "core/Clock.h"
#include "core/Help.h"
#include "core/Log.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "core/System.h"
#include "core/UserPrompt.h"
#include "desktop/MessageBoxPrompt.h"
#include "desktop/OpenHelp.h"
#include "exchange/CodesExchange.h"
#include "exchange/Exchange.h"
#include "learning/LearningStore.h"
#include "power/Power.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDesktopServices>
#include <QDir>
#include <QLoggingCategory>

#include <algorithm>
#include <cstdio>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcMain, "kestrava.main")

struct Options {
    QString home;
    bool demo = false;
    QString demoDir;
    bool headless = false;
    bool verbose = false;
    std::optional<QString> exportDir; // --export DIR [DEVICE...]
    bool import = false;              // --import [--overwrite] FILE...
    bool overwrite = false;
    QStringList names;                  // devices to export, archives to import
    std::optional<QString> importCodes; // --import-codes FILE [--remote NAME] [--design N]
    QString remote;
    int design = 0;
    std::optional<QString> exportCodes; // --export-codes DIR --format F [DEVICE...]
    QString format;
    QString command; // "press", "scene" or "list": asks the running instance
    bool json = false;
};

const char* const Usage =
    "Usage: kestrava [OPTION]...\n"
    "A learning infrared remote control with its own web server.\n"
    "\n"
    "  --home DIR      keep everything in DIR (default $KESTRAVA_HOME, else\n"
    "                  ~/.local/share/kestrava)\n"
    "  --demo [DIR]    run on a demo folder with the simulated transceiver\n"
    "                  (default ./kestrava-demo), prepared when new\n"
    "  --headless      run without windows (also when no display can be opened)\n"
    "  --verbose       log more\n"
    "  --export DIR [DEVICE]...\n"
    "                  write the learned remotes named (all when none is) to\n"
    "                  DIR/<device>.kxp, then exit\n"
    "  --import [--overwrite] FILE.kxp...\n"
    "                  import archives, replacing remotes of the same name only\n"
    "                  with --overwrite, then exit\n"
    "  --import-codes FILE [--remote NAME] [--design N]\n"
    "                  make or extend a learned remote from a code file (Flipper\n"
    "                  .ir, lircd.conf, Pronto, Broadlink, ir-ctl text, JSON, or a\n"
    "                  folder of such files, one key each), then exit\n"
    "  --export-codes DIR --format flipper|lircd|pronto|broadlink|json|irctl|bin\n"
    "                  [DEVICE]...\n"
    "                  write the learned remotes named (all when none is) as code\n"
    "                  files into DIR, then exit\n"
    "  --press REMOTE KEY\n"
    "                  press a key through the instance running on the folder\n"
    "  --scene NAME    run a scene through the running instance; ends when its\n"
    "                  last step has been sent\n"
    "  --list [--json] list the remotes and learned keys of the running instance\n"
    "  -h, --help      show this help and exit\n"
    "  --version       show the version and exit\n"
    "\n"
    "Exit status: 0 done, 1 failed (with why), 2 bad usage, 3 no instance running\n"
    "(--press, --scene, --list).\n";

// Returns the exit status when the program should end without running.
std::optional<int> parseOptions(int argc, char** argv, Options& o) {
    QStringList args;
    for (int i = 0; i < argc; ++i)
        args << QString::fromLocal8Bit(argv[i]);
    // --demo takes an optional folder, which QCommandLineParser cannot express.
    for (qsizetype i = 1; i < args.size(); ++i) {
        if (args[i] == u"--demo" || args[i] == u"-demo") {
            o.demo = true;
            if (i + 1 < args.size() && !args[i + 1].startsWith(u'-'))
                o.demoDir = args.takeAt(i + 1);
            args.removeAt(i--);
        } else if (args[i].startsWith(u"--demo=")) {
            o.demo = true;
            o.demoDir = args.takeAt(i--).mid(7);
        }
    }
    QCommandLineParser parser;
    QCommandLineOption home(u"home"_s, {}, u"DIR"_s);
    QCommandLineOption headless(u"headless"_s);
    QCommandLineOption verbose(u"verbose"_s);
    QCommandLineOption help(QStringList{u"h"_s, u"help"_s});
    QCommandLineOption version(u"version"_s);
    QCommandLineOption exportTo(u"export"_s, {}, u"DIR"_s);
    QCommandLineOption import(u"import"_s);
    QCommandLineOption overwrite(u"overwrite"_s);
    QCommandLineOption importCodes(u"import-codes"_s, {}, u"FILE"_s);
    QCommandLineOption remote(u"remote"_s, {}, u"NAME"_s);
    QCommandLineOption design(u"design"_s, {}, u"N"_s);
    QCommandLineOption exportCodes(u"export-codes"_s, {}, u"DIR"_s);
    QCommandLineOption format(u"format"_s, {}, u"FORMAT"_s);
    QCommandLineOption press(u"press"_s);
    QCommandLineOption list(u"list"_s);
    QCommandLineOption json(u"json"_s);
    QCommandLineOption scene(u"scene"_s, {}, u"NAME"_s);
    parser.addOptions({home, headless, verbose, help, version, exportTo, import, overwrite,
                       importCodes, remote, design, exportCodes, format, press, list, json, scene});
    if (!parser.parse(args)) {
        std::fprintf(stderr, "kestrava: %s\nTry 'kestrava --help' for more information.\n",
                     qPrintable(parser.errorText()));
        return 2;
    }
    if (parser.isSet(help)) {
        std::fputs(Usage, stdout);
        return 0;
    }
    auto usageError = [](const char* text) {
        std::fprintf(stderr, "kestrava: %s\nTry 'kestrava --help' for more information.\n", text);
        return 2;
    };
    const int modes = int(parser.isSet(exportTo)) + int(parser.isSet(import)) +
                      int(parser.isSet(importCodes)) + int(parser.isSet(exportCodes)) +
                      int(parser.isSet(press)) + int(parser.isSet(list)) + int(parser.isSet(scene));
    if (modes > 1)
        return usageError("--export, --import, --import-codes, --export-codes, --press, --scene"
                          " and --list go one at a time");
    if (parser.isSet(json) && !parser.isSet(list))
        return usageError("--json goes with --list");
    if (parser.isSet(scene) && parser.value(scene).trimmed().isEmpty())
        return usageError("--scene takes a scene's name");
    if (parser.isSet(press) && parser.positionalArguments().size() != 2)
        return usageError("--press takes a remote and a key");
    if (parser.isSet(list) && !parser.positionalArguments().isEmpty())
        return usageError("--list takes no arguments");
    if ((parser.isSet(remote) || parser.isSet(design)) && !parser.isSet(importCodes))
        return usageError("--remote and --design go with --import-codes");
    if (parser.isSet(format) != parser.isSet(exportCodes))
        return usageError("--export-codes needs --format, and --format goes with it");
    if (parser.isSet(importCodes) && !parser.positionalArguments().isEmpty())
        return usageError("--import-codes takes one file or folder");
    if (parser.isSet(design)) {
        bool number = false;
        o.design = parser.value(design).toInt(&number);
        if (!number || o.design < 1 || o.design > 6)
            return usageError("--design takes a number from 1 to 6");
    }
    if (parser.isSet(overwrite) && !parser.isSet(import))
        return usageError("--overwrite goes with --import");
    if (parser.isSet(import) && parser.positionalArguments().isEmpty())
        return usageError("--import needs at least one archive");
    if (!parser.positionalArguments().isEmpty() && !parser.isSet(exportTo) &&
        !parser.isSet(import) && !parser.isSet(exportCodes) && !parser.isSet(press)) {
        std::fprintf(stderr,
                     "kestrava: unexpected argument '%s'\n"
                     "Try 'kestrava --help' for more information.\n",
                     qPrintable(parser.positionalArguments().first()));
        return 2;
    }
    if (parser.isSet(version)) {
        std::printf("kestrava %s\n", KESTRAVA_VERSION);
        return 0;
    }
    if (o.demo && parser.isSet(home)) {
        std::fputs("kestrava: --demo and --home cannot be used together\n", stderr);
        return 2;
    }
    o.home = parser.value(home);
    o.headless = parser.isSet(headless);
    o.verbose = parser.isSet(verbose);
    if (parser.isSet(exportTo))
        o.exportDir = parser.value(exportTo);
    o.import = parser.isSet(import);
    o.overwrite = parser.isSet(overwrite);
    o.names = parser.positionalArguments();
    if (parser.isSet(importCodes))
        o.importCodes = parser.value(importCodes);
    o.remote = parser.value(remote);
    if (parser.isSet(exportCodes))
        o.exportCodes = parser.value(exportCodes);
    o.format = parser.value(format);
    o.command = parser.isSet(press)   ? u"press"_s
                : parser.isSet(scene) ? u"scene"_s
                : parser.isSet(list)  ? u"list"_s
                                      : QString();
    if (parser.isSet(scene))
        o.names = {parser.value(scene)};
    o.json = parser.isSet(json);
    return std::nullopt;
}

// --export and --import work on the folder's files whether or not an instance
// runs on it: both go through setting.ini, which a running instance rereads
// when it changes. One line per remote or archive; status 1 if any failed.
// Neither makes the program folder: an import that is accepted makes what it needs.
int RunExchange(const Options& o, const ProgramFolder& folder) {
    SettingsStore settings(folder.settingsPath());
    if (settings.Unreadable()) {
        std::printf("%s: cannot be read\n", qPrintable(settings.path()));
        return 1;
    }
    bool allWell = true;
    if (o.importCodes) {
        const CodesImportResult r =
            ImportCodes(folder, settings, {*o.importCodes, o.remote, o.design});
        for (const QString& line : DescribeCodesImport(*o.importCodes, r))
            std::printf("%s\n", qPrintable(line));
        return r.ok() ? 0 : 1;
    }
    if (o.exportCodes) {
        QStringList lines;
        allWell = ExportCodes(folder, settings, *o.exportCodes, o.format, o.names, &lines);
        for (const QString& line : lines)
            std::printf("%s\n", qPrintable(line));
        return allWell ? 0 : 1;
    }
    if (o.import) {
        for (const QString& archive : o.names) {
            const ImportResult r = ImportArchive(folder, settings, archive, o.overwrite);
            std::printf("%s\n", qPrintable(DescribeImport(archive, r)));
            allWell = allWell && r.outcome == ImportResult::Imported;
        }
        return allWell ? 0 : 1;
    }
    const std::vector<ExportableRemote> remotes = ExportableRemotes(settings);
    std::vector<ExportableRemote> chosen;
    for (const QString& name : o.names) {
        auto it = std::find_if(remotes.begin(), remotes.end(), [&](const ExportableRemote& r) {
            return r.name == ShiftJis::RoundTrip(name);
        });
        if (it == remotes.end()) {
            std::printf("%s: no such remote\n", qPrintable(name));
            allWell = false;
        } else {
            chosen.push_back(*it);
        }
    }
    if (o.names.isEmpty())
        chosen = remotes;
    QDir().mkpath(*o.exportDir);
    for (const ExportableRemote& r : chosen) {
        const QString path = ArchivePath(*o.exportDir, r.name);
        QString error;
        if (ExportDevice(folder, settings, r.name, r.slot, path, &error)) {
            std::printf("%s: written to %s\n", qPrintable(r.name), qPrintable(path));
        } else {
            std::printf("%s: not written: %s\n", qPrintable(r.name), qPrintable(error));
            allWell = false;
        }
    }
    return allWell ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    if (auto status = parseOptions(argc, argv, options))
        return *status;
    InstallLogHandler(options.verbose);
    RaiseFileLimit();
    PinTimeZone();

    QString root = options.demo ? QDir::cleanPath(QDir(options.demoDir.isEmpty()
                                                           ? QString::fromLatin1(DefaultDemoFolder)
                                                           : options.demoDir)
                                                      .absolutePath())
                                : ProgramFolder::Resolve(options.home);
    ProgramFolder folder(root);
    if (!options.command.isEmpty()) {
        QCoreApplication qapp(argc, argv);
        return RunRemoteCommand(folder, options.command, options.names, options.json);
    }
    if (options.exportDir || options.import || options.importCodes || options.exportCodes) {
        QCoreApplication qapp(argc, argv);
        return RunExchange(options, folder);
    }
    QString error;
    if (!folder.Create(&error)) {
        qCritical().noquote() << error;
        return 1;
    }
    InstanceLock lock;
    switch (lock.Acquire(folder, &error)) {
    case InstanceLock::Result::HeldElsewhere: {
        // Another instance serves this folder: say which, and leave it be.
        const qint64 pid = InstanceLock::Holder(folder);
        qCInfo(lcMain).noquote() << folder.root() << "is in use by"
                                 << (pid > 0 ? u"kestrava (pid "_s + QString::number(pid) + u")"_s
                                             : u"another kestrava"_s)
                                 << "- not starting a second one";
        return 0;
    }
    case InstanceLock::Result::Failed:
        qCritical().noquote() << error;
        return 1;
    case InstanceLock::Result::Acquired:
        break;
    }

    folder.RemoveStaleTemporaries();
    if (const int n = LearningSession::RemoveTempFiles(folder))
        qCInfo(lcMain).noquote() << "removed" << n << "signals of a learning that never finished";
    SettingsStore settings(folder.settingsPath());
    if (options.demo && PrepareDemoFolder(folder, settings))
        qCInfo(lcMain).noquote() << "prepared demo folder" << folder.root();

    const bool headless = options.headless || !DisplayAvailable();
    std::unique_ptr<QCoreApplication> qapp;
    if (headless)
        qapp = std::make_unique<QCoreApplication>(argc, argv);
    else
        qapp = std::make_unique<QApplication>(argc, argv);
    QCoreApplication::setApplicationName(u"kestrava"_s);
    QCoreApplication::setApplicationVersion(QString::fromLatin1(KESTRAVA_VERSION));

    // Tests of the whole program may move its clock; nobody else sets this.
    std::unique_ptr<Clock> clockStore;
    if (const qint64 offset = qEnvironmentVariableIntValue("KESTRAVA_TEST_CLOCK_OFFSET_MS")) {
        qCInfo(lcMain) << "clock moved by" << offset << "ms for a test";
        clockStore = std::make_unique<OffsetClock>(offset);
    } else {
        clockStore = std::make_unique<SystemClock>();
    }
    const Clock& clock = *clockStore;
    std::unique_ptr<UserPrompt> prompt;
    if (headless)
        prompt = std::make_unique<HeadlessPrompt>();
    else {
        auto boxes = std::make_unique<MessageBoxPrompt>();
        boxes->openHelp = [](const QString& page) { OpenHelp(page); };
        prompt = std::move(boxes);
    }

    Program app(folder, settings, clock, *prompt);
    app.SetHeadless(headless);
    if (!headless)
        app.openHelp = [](const QString& page) {
            // The first start goes on whether or not a browser opens.
            if (!QDesktopServices::openUrl(HelpPageUrl(page)))
                qCWarning(lcMain).noquote() << "help page" << page << "not shown";
        };
    QObject::connect(&app.events, &ProgramEvents::closed, qapp.get(), &QCoreApplication::quit,
                     Qt::QueuedConnection);

    SignalWatcher watcher;
    QObject::connect(&watcher, &SignalWatcher::terminationRequested, &app, [&app](int number) {
        qCInfo(lcMain) << "signal" << number;
        app.Close();
    });

    if (!headless)
        app.OpenDesktop();
    else
        qCInfo(lcMain) << "running headless";

    app.Start();
    if (app.isClosing())
        return 0;
    app.ShowDesktop();
    int status = qapp->exec();
    qCInfo(lcMain) << "closed";
    return status;
}
