#pragma once
// The engine's sentences are written for the window ("Press Talk Live to
// continue."). The command line prints them as they stand and adds its own
// next step after them.
#include <QString>

#include <string>

namespace parlova::cli {

// The message, followed by the command line's next step when it names a
// button of the window.
std::string withNextStep(const QString& message, const std::string& rerun = "the same command");

}  // namespace parlova::cli
