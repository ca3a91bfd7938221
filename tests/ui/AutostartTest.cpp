// "Start Parlova when I log in": the entry a login session starts.
#include "ui/Autostart.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace parlova::ui;

class AutostartTest : public QObject {
    Q_OBJECT
private slots:
    void init() {
        dir_ = std::make_unique<QTemporaryDir>();
        QVERIFY(dir_->isValid());
        qputenv("XDG_CONFIG_HOME", dir_->path().toUtf8());
    }

    // The entry carries the app ID, so the desktop matches it with the launcher
    // and its icon, and a desktop's validator accepts it, path with spaces and all.
    void theEntryIsAValidDesktopEntryNamedAfterTheApp() {
        QCOMPARE(setAutostartEnabled(true, "/opt/My Apps/parlova"), QString());
        const QString entry = path("autostart/" PARLOVA_APP_ID ".desktop");
        QCOMPARE(autostartEntryPath(), entry);
        QVERIFY(autostartEnabled());
        const QString validator = QStandardPaths::findExecutable("desktop-file-validate");
        if (validator.isEmpty()) QSKIP("desktop-file-validate is not installed");
        QProcess validate;
        validate.setProcessChannelMode(QProcess::MergedChannels);
        validate.start(validator, {entry});
        QVERIFY(validate.waitForFinished());
        QVERIFY2(validate.exitCode() == 0, validate.readAll().constData());
    }

    // An entry an earlier version wrote under the program's name counts as on,
    // and either choice replaces it, so a login never starts Parlova twice.
    void theFormerEntryIsTakenOver() {
        QDir().mkpath(path("autostart"));
        const QString former = path("autostart/parlova.desktop");
        QFile file(former);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("[Desktop Entry]\nType=Application\nName=Parlova\nExec=parlova --minimized\n");
        file.close();
        QVERIFY(autostartEnabled());

        QCOMPARE(setAutostartEnabled(true, "/usr/bin/parlova"), QString());
        QVERIFY(!QFile::exists(former));
        QVERIFY(QFile::exists(autostartEntryPath()));

        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        QCOMPARE(setAutostartEnabled(false, "/usr/bin/parlova"), QString());
        QVERIFY(!QFile::exists(former));
        QVERIFY(!autostartEnabled());
    }

private:
    QString path(const QString& relative) const { return dir_->filePath(relative); }
    std::unique_ptr<QTemporaryDir> dir_;
};

QTEST_MAIN(AutostartTest)
#include "AutostartTest.moc"
