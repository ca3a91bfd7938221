#include "app/ParlovaApp.h"

#include "ui/Autostart.h"

#include <QApplication>
#include <QMenu>
#include <QMessageBox>

namespace parlova {

ParlovaApp::ParlovaApp(const Options& options)
    : store_(&settings_), engine_(&settings_, &AudioBackend::system(), BackendJobs::shared()), devices_(), cloner_(), library_({}, &settings_),
      soundboard_(board_, engine_, store_, &library_), selection_(engine_, store_, &library_), micSetup_(&devices_),
      handsFree_(engine_, selection_) {
    engine_.setCloner(&cloner_);
    // The board's commands and shortcuts play through the window's board.
    handsFree_.setBoard(&board_, &soundboard_);
    // Keys and commands from outside; another Parlova already listening keeps them.
    QString handsFreeError;
    if (!handsFree_.start(&handsFreeError)) qInfo("%s", qPrintable(handsFreeError));
    window_ = std::make_unique<ui::MainWindow>(
        ui::AppModel{store_, engine_, devices_, micSetup_, library_, cloner_, settings_, selection_, &handsFree_,
                     &board_, &soundboard_});
    addAppMenuItems();
    if (ui::TrayIcon::desktopHasTray()) {
        tray_ = std::make_unique<ui::TrayIcon>(
            engine_, store_, selection_, [this] { showWindow(); });
        tray_->show();
        // With a tray the window can close while a call goes on.
        qApp->setQuitOnLastWindowClosed(false);
    }
    window_->setCloseHandler([this] { return windowMayClose(); });
    // A second launch hands its options over instead of making a second engine.
    handsFree_.commands().setOpenHandler([this](const QJsonObject& object) {
        Options options = fromJson(object);
        QString error;
        const bool ok = apply(options, &error);
        if (!options.minimized) showWindow();
        return ControlReply{ok, ok ? QStringLiteral("Parlova is open.") : error, {}};
    });

    if (QString error; !apply(options, &error)) engine_.setErrorMessage(error);
    if (options.minimized && tray_) return;  // the tray icon is the way in
    if (options.minimized)
        window_->showMinimized();
    else
        window_->show();
}

bool ParlovaApp::apply(const Options& options, QString* error) {
    bool ok = true;
    if (!options.voice.isEmpty() && !selection_.selectNamed(options.voice)) {
        *error = QString("There is no voice named \u201c%1\u201d.").arg(options.voice);
        ok = false;
    }
    if (options.call) engine_.setCallMode(true);
    if (options.live && !engine_.isLive()) engine_.toggleLive();
    return ok;
}

QJsonObject ParlovaApp::toJson(const Options& options) {
    QJsonObject object{{"show", !options.minimized}, {"call", options.call}, {"live", options.live}};
    if (!options.voice.isEmpty()) object.insert("voice", options.voice);
    return object;
}

ParlovaApp::Options ParlovaApp::fromJson(const QJsonObject& object) {
    Options options;
    options.minimized = !object.value("show").toBool(true);
    options.call = object.value("call").toBool();
    options.live = object.value("live").toBool();
    options.voice = object.value("voice").toString();
    return options;
}

// The views go first; the board's sounds and live mode stop while the cloner
// they may go through still exists; the engine, destroyed last, gives the
// real microphone back.
ParlovaApp::~ParlovaApp() {
    tray_.reset();
    window_.reset();
    soundboard_.stop();
    if (engine_.isLive()) engine_.toggleLive();
    engine_.setClone({});
}

void ParlovaApp::showWindow() {
    window_->showNormal();
    window_->raise();
    window_->activateWindow();
}

bool ParlovaApp::windowMayClose() {
    if (tray_ && engine_.isLive()) {
        // The call keeps going; the tray icon says so once.
        tray_->noticeStillRunning();
        return true;
    }
    qApp->quit();
    return true;
}

void ParlovaApp::addAppMenuItems() {
    QMenu* menu = window_->appMenu();
    QAction* autostart = menu->addAction("Start Parlova when I log in");
    autostart->setCheckable(true);
    autostart->setChecked(ui::autostartEnabled());
    connect(autostart, &QAction::toggled, this, [this, autostart](bool on) {
        QString error = ui::setAutostartEnabled(on, QApplication::applicationFilePath());
        if (!error.isEmpty()) {
            engine_.setErrorMessage(error);
            QSignalBlocker block(autostart);
            autostart->setChecked(ui::autostartEnabled());
        }
    });
    menu->addSeparator();
    menu->addAction("Close Window", QKeySequence::Close, window_.get(), &QWidget::close);
    menu->addAction("Quit", QKeySequence::Quit, qApp, &QApplication::quit);
}

}  // namespace parlova
