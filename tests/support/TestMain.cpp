// Test entry point: a Qt core application exists for the whole run, as in the
// app, so timers, settings and queued calls behave as they do there.
#include <QCoreApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName("Parlova");
    QCoreApplication::setApplicationName("Parlova Tests");
    return RUN_ALL_TESTS();
}
