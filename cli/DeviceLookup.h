#pragma once
// Strict device choice for --input and --output: a device named by its UID,
// its display name or its id, or a usage error that lists the devices there
// are. Never a silent fall-back to the default.
#include "devices/AudioDeviceList.h"

#include <string>

namespace parlova::cli {

// The listed device that `text` names (UID exactly, then display name in any
// letter case, then the numeric id). Throws UsageError naming `option` and
// listing the devices of that direction. The virtual mic is refused as an
// input: Parlova would hear its own output.
AudioDevice lookupDevice(const DeviceTable& table, const std::string& text, Direction direction,
                         const std::string& option);

// One snapshot of the system's server, or Failure with the server sentence.
DeviceTable systemDevices();

}  // namespace parlova::cli
