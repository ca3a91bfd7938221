#pragma once
// Ctrl-C and SIGTERM end a running command through its event loop, so every
// way out runs the same clean-up (stopping live mode, restoring the microphone).
#include <QCoreApplication>
#include <QTimer>

#include <atomic>
#include <csignal>

namespace parlova::cli {

inline std::atomic<int> receivedSignal{0};

// Installs the handlers and polls for them; quits the application when one arrives.
inline void quitOnSignals(QObject* owner) {
    auto handler = [](int sig) { receivedSignal.store(sig); };
    std::signal(SIGINT, handler);
    std::signal(SIGTERM, handler);
    std::signal(SIGHUP, handler);
    auto* poll = new QTimer(owner);
    QObject::connect(poll, &QTimer::timeout, [] {
        if (receivedSignal.load() != 0) QCoreApplication::quit();
    });
    poll->start(50);
}

}  // namespace parlova::cli
