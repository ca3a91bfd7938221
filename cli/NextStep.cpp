#include "cli/NextStep.h"

#include "engine/LiveRouting.h"
#include "engine/LiveSession.h"

namespace parlova::cli {

std::string withNextStep(const QString& message, const std::string& rerun) {
    const std::string text = message.toStdString();
    if (message.contains(QLatin1String(kCallNeedsVirtualMicMessage)))
        return text + "\nRun 'parlova-cli mic install', then try again.";
    if (message.contains(QLatin1String(kDisconnectedMessage)))
        return text + "\nRun " + rerun + " again to continue.";
    return text;
}

}  // namespace parlova::cli
