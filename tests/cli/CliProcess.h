#pragma once
// parlova-cli run as a user runs it: a real process, with what it prints on
// each stream and its exit status.
#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

namespace parlova::testcli {

struct Result {
    int code = -1;
    QByteArray out;
    QString err;
    QString text() const { return QString::fromUtf8(out); }
    // The standard error's lines, without the last newline.
    QStringList errLines() const { return err.trimmed().split('\n'); }
};

// This process's environment with a user of its own: home, settings, data and
// runtime folders in `home`.
inline QProcessEnvironment privateHome(const QString& home) {
    auto env = QProcessEnvironment::systemEnvironment();
    env.insert("HOME", home);
    env.insert("XDG_CONFIG_HOME", home + "/config");
    env.insert("XDG_DATA_HOME", home + "/data");
    env.insert("XDG_RUNTIME_DIR", home);
    return env;
}

// Runs the tool with `args`, `input` on its standard input, and `env` (the
// test process's own environment when empty).
inline Result runCli(const QStringList& args, const QByteArray& input = {},
                     const QProcessEnvironment& env = QProcessEnvironment()) {
    QProcess process;
    if (!env.isEmpty()) process.setProcessEnvironment(env);
    process.start(PARLOVA_CLI_PATH, args);
    process.write(input);
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(120000)) << args.join(' ').toStdString();
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, process.readAllStandardOutput(),
            QString::fromUtf8(process.readAllStandardError())};
}

}  // namespace parlova::testcli
