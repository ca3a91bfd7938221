#pragma once
// The sidebar: "Voices" and "Cloned Voices", each row a name over its summary
// line. Rows are rebuilt only when the list of ids changes, so an edit updates
// its row in place and keeps the selection and the keyboard focus.
#include <QTreeWidget>
#include <QUuid>

#include <optional>
#include <vector>

namespace parlova::ui {

struct SidebarRow {
    QUuid id;
    QString title;    // emoji and name
    QString summary;  // the second line
    bool deletable = false;
    bool resettable = false;
};

enum class RowKind { voice, clone };

struct SidebarSelection {
    RowKind kind;
    QUuid id;
    bool operator==(const SidebarSelection&) const = default;
};

class Sidebar : public QTreeWidget {
    Q_OBJECT
public:
    explicit Sidebar(QWidget* parent = nullptr);

    void showRows(RowKind kind, const std::vector<SidebarRow>& rows);
    std::optional<SidebarSelection> selection() const;
    void select(const std::optional<SidebarSelection>& selection);
    QTreeWidgetItem* section(RowKind kind) const { return kind == RowKind::voice ? voices_ : clones_; }

signals:
    void selectionChangedTo(const std::optional<parlova::ui::SidebarSelection>& selection);
    void duplicateRequested(const QUuid& id);
    void resetRequested(const QUuid& id);
    void deleteRequested(parlova::ui::RowKind kind, const QUuid& id);

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void showMenu(const QPoint& position);
    QTreeWidgetItem* voices_;
    QTreeWidgetItem* clones_;
};

}  // namespace parlova::ui
