// Parlova's desktop app.
#include "app/ParlovaApp.h"
#include "app/Screenshot.h"
#include "cli/SignalWatch.h"
#include "control/ControlServer.h"
#include "devices/LegacyMigration.h"
#include "engine/LiveOwner.h"
#include "engine/SessionLock.h"

#include <QJsonDocument>

#include <QApplication>
#include <QCommandLineParser>

#include <cstdio>
#include <string_view>

namespace {

// A screenshot, the version and the help need no display, so they work from a
// terminal without a desktop too.
bool needsNoDisplay(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg == "--screenshot" || arg.starts_with("--screenshot=") || arg == "--version" || arg == "-v" ||
            arg == "--help" || arg == "-h" || arg == "--help-all")
            return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (needsNoDisplay(argc, argv)) qputenv("QT_QPA_PLATFORM", "offscreen");

    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName("Parlova");
    QCoreApplication::setApplicationName("Parlova");
    QCoreApplication::setApplicationVersion(PARLOVA_VERSION);
    QGuiApplication::setDesktopFileName(QStringLiteral(PARLOVA_APP_ID));

    QCommandLineParser parser;
    parser.setApplicationDescription("Parlova: speak in another voice, live or in a call.");
    parser.addHelpOption();
    parser.addVersionOption();
    QCommandLineOption minimized("minimized", "Start in the tray without showing the window.");
    QCommandLineOption voice("voice", "Start with the voice named NAME.", "NAME");
    QCommandLineOption call("call", "Start with call mode on (Parlova Mic becomes the microphone).");
    QCommandLineOption live("live", "Start talking live.");
    QCommandLineOption screenshot("screenshot", "Render the window to the PNG file FILE and quit.", "FILE");
    QCommandLineOption select("select", "With --screenshot: select the voice or cloned voice NAME.", "NAME");
    QCommandLineOption page("page", "With --screenshot: show the voice, clone, calls or board page.",
                            "voice|clone|calls|board");
    parser.addOptions({minimized, voice, call, live, screenshot, select, page});
    parser.process(app);

    // Settings and files of the former name move over before anything reads them.
    parlova::LegacyMigration::run();

    if (parser.isSet(screenshot))
        return parlova::takeScreenshot(parser.value(screenshot), parser.value(select), parser.value(page));

    parlova::ParlovaApp::Options options;
    options.minimized = parser.isSet(minimized);
    options.voice = parser.value(voice);
    options.call = parser.isSet(call);
    options.live = parser.isSet(live);

    // One app per session: a second launch hands its options to the first
    // (which shows its window) and ends.
    const QString who = QStringLiteral("the Parlova window (process %1)").arg(QCoreApplication::applicationPid());
    parlova::SessionLock instance(parlova::sessionRuntimePath(QStringLiteral("parlova-app.lock")));
    if (!instance.tryAcquire({QCoreApplication::applicationPid(), who, QStringLiteral("app"),
                              parlova::controlSocketPath()})) {
        const QByteArray request =
            "open " + QJsonDocument(parlova::ParlovaApp::toJson(options)).toJson(QJsonDocument::Compact);
        const parlova::ControlReply reply = parlova::sendControlRequest(QString::fromUtf8(request), 5000,
                                                                        parlova::controlSocketPath());
        if (reply.ok) return 0;
        std::fprintf(stderr, "Parlova is already running, but it did not take this launch's options: %s\n",
                     reply.message.toUtf8().constData());
        return 1;
    }
    parlova::LiveOwner::setIdentity(who);
    parlova::ParlovaApp parlovaApp(options);
    // A logout or kill ends through the event loop, so the engine still puts
    // the real microphone back.
    parlova::cli::quitOnSignals(&parlovaApp);
    return app.exec();
}
