#include "devices/DeviceTable.h"

namespace parlova {

const DeviceEntry* DeviceTable::find(uint32_t id) const {
    for (const auto& e : entries)
        if (e.id == id) return &e;
    return nullptr;
}

}  // namespace parlova
