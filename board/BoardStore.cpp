#include "board/BoardStore.h"

namespace parlova {

BoardStore::BoardStore(const QString& directory, QObject* parent) : QObject(parent), directory_(directory) {}
BoardStore::~BoardStore() = default;
QString BoardStore::defaultDirectory() { return {}; }
std::optional<BoardEntry> BoardStore::entry(const QUuid&) const { return std::nullopt; }
std::optional<BoardEntry> BoardStore::find(const QString&) const { return std::nullopt; }
QString BoardStore::clipPath(const BoardEntry&) const { return {}; }
BoardEntry BoardStore::addClip(const QString&, const QString&) { return {}; }
BoardEntry BoardStore::addSpeech(const QString&, const QUuid&, const QUuid&, const QString&) { return {}; }
void BoardStore::update(const BoardEntry&) {}
void BoardStore::rename(const QUuid&, const QString&) {}
void BoardStore::remove(const QUuid&) {}
void BoardStore::move(const QUuid&, int) {}
void BoardStore::reload() {}
void BoardStore::load() {}
void BoardStore::save() {}

}  // namespace parlova
