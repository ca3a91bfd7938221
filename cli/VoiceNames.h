#pragma once
// Voices are found by name on the command line, so the names it gives are
// kept unique: "Old Lady Copy", then "Old Lady Copy 2", "Old Lady Copy 3".
#include "voices/Voice.h"

#include <vector>

namespace parlova::cli {

inline QString uniqueVoiceName(const std::vector<Voice>& voices, const QString& base, const QUuid& except = {}) {
    auto taken = [&](const QString& name) {
        for (const auto& v : voices)
            if (v.id != except && v.name.compare(name, Qt::CaseInsensitive) == 0) return true;
        return false;
    };
    QString name = base;
    for (int n = 2; taken(name); ++n) name = base + ' ' + QString::number(n);
    return name;
}

}  // namespace parlova::cli
