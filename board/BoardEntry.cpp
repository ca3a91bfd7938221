#include "board/BoardEntry.h"

namespace parlova {

QJsonObject BoardEntry::toJson() const { return {}; }

std::optional<BoardEntry> BoardEntry::fromJson(const QJsonObject&) { return std::nullopt; }

}  // namespace parlova
