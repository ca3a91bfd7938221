#include "ui/Sidebar.h"

#include <QHeaderView>
#include <QKeyEvent>
#include <QMenu>
#include <QPainter>
#include <QStyledItemDelegate>

namespace parlova::ui {

namespace {

enum Role { IdRole = Qt::UserRole, SummaryRole, DeletableRole, ResettableRole };

// Paints a row as its title over a dimmer summary line.
class TwoLineDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        QSize size = QStyledItemDelegate::sizeHint(option, index);
        if (index.data(SummaryRole).isValid()) size.setHeight(option.fontMetrics.height() * 2 + 10);
        return size;
    }

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        if (!index.data(SummaryRole).isValid()) return QStyledItemDelegate::paint(painter, option, index);
        QStyleOptionViewItem opt = option;
        initStyleOption(&opt, index);
        QString title = opt.text;
        opt.text.clear();
        opt.widget->style()->drawControl(QStyle::CE_ItemViewItem, &opt, painter, opt.widget);
        bool selected = opt.state & QStyle::State_Selected;
        QRect r = opt.rect.adjusted(6, 4, -6, -4);
        int lineHeight = opt.fontMetrics.height();
        painter->save();
        painter->setPen(opt.palette.color(selected ? QPalette::HighlightedText : QPalette::Text));
        painter->drawText(QRect(r.left(), r.top(), r.width(), lineHeight), Qt::AlignLeft | Qt::AlignVCenter,
                          opt.fontMetrics.elidedText(title, Qt::ElideRight, r.width()));
        QColor dim = opt.palette.color(selected ? QPalette::HighlightedText : QPalette::PlaceholderText);
        painter->setPen(dim);
        painter->drawText(QRect(r.left(), r.top() + lineHeight + 1, r.width(), lineHeight),
                          Qt::AlignLeft | Qt::AlignVCenter, index.data(SummaryRole).toString());
        painter->restore();
    }
};

QTreeWidgetItem* makeSection(QTreeWidget* tree, const QString& title) {
    auto* item = new QTreeWidgetItem(tree, {title.toUpper()});
    item->setFlags(Qt::ItemIsEnabled);
    QFont font = item->font(0);
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * 0.85);
    item->setFont(0, font);
    item->setExpanded(true);
    return item;
}

}  // namespace

Sidebar::Sidebar(QWidget* parent) : QTreeWidget(parent) {
    setHeaderHidden(true);
    setRootIsDecorated(false);
    setIndentation(8);
    setItemDelegate(new TwoLineDelegate(this));
    setContextMenuPolicy(Qt::CustomContextMenu);
    setMinimumWidth(210);
    setAccessibleName("Voices");
    voices_ = makeSection(this, "Voices");
    clones_ = makeSection(this, "Cloned Voices");
    voices_->setData(0, Qt::AccessibleTextRole, "Voices");
    clones_->setData(0, Qt::AccessibleTextRole, "Cloned Voices");
    connect(this, &QTreeWidget::itemSelectionChanged, this, [this] { emit selectionChangedTo(selection()); });
    connect(this, &QWidget::customContextMenuRequested, this, &Sidebar::showMenu);
}

void Sidebar::showRows(RowKind kind, const std::vector<SidebarRow>& rows) {
    QTreeWidgetItem* parent = section(kind);
    bool sameIds = parent->childCount() == int(rows.size());
    for (int i = 0; sameIds && i < parent->childCount(); ++i)
        sameIds = parent->child(i)->data(0, IdRole).toUuid() == rows[size_t(i)].id;
    if (!sameIds) {
        auto kept = selection();
        blockSignals(true);
        qDeleteAll(parent->takeChildren());
        for (size_t i = 0; i < rows.size(); ++i) new QTreeWidgetItem(parent);
        blockSignals(false);
        select(kept);
    }
    for (size_t i = 0; i < rows.size(); ++i) {
        QTreeWidgetItem* item = parent->child(int(i));
        item->setText(0, rows[i].title);
        item->setData(0, IdRole, rows[i].id);
        item->setData(0, SummaryRole, rows[i].summary);
        item->setData(0, DeletableRole, rows[i].deletable);
        item->setData(0, ResettableRole, rows[i].resettable);
        item->setData(0, Qt::AccessibleDescriptionRole, rows[i].summary);
    }
    if (!sameIds && selection() == std::nullopt) emit selectionChangedTo(std::nullopt);
}

std::optional<SidebarSelection> Sidebar::selection() const {
    auto items = selectedItems();
    if (items.isEmpty() || !items.first()->parent()) return std::nullopt;
    auto* item = items.first();
    return SidebarSelection{item->parent() == voices_ ? RowKind::voice : RowKind::clone,
                            item->data(0, IdRole).toUuid()};
}

void Sidebar::select(const std::optional<SidebarSelection>& wanted) {
    if (!wanted) {
        clearSelection();
        return;
    }
    QTreeWidgetItem* parent = section(wanted->kind);
    for (int i = 0; i < parent->childCount(); ++i)
        if (parent->child(i)->data(0, IdRole).toUuid() == wanted->id) {
            setCurrentItem(parent->child(i));
            return;
        }
}

void Sidebar::showMenu(const QPoint& position) {
    QTreeWidgetItem* item = itemAt(position);
    if (!item || !item->parent()) return;
    QUuid id = item->data(0, IdRole).toUuid();
    QMenu menu(this);
    if (item->parent() == voices_) {
        menu.addAction("Duplicate", this, [this, id] { emit duplicateRequested(id); });
        if (item->data(0, ResettableRole).toBool())
            menu.addAction("Reset to Default", this, [this, id] { emit resetRequested(id); });
        QAction* remove = menu.addAction("Delete", this, [this, id] { emit deleteRequested(RowKind::voice, id); });
        remove->setEnabled(item->data(0, DeletableRole).toBool());
    } else {
        menu.addAction("Delete", this, [this, id] { emit deleteRequested(RowKind::clone, id); });
    }
    menu.exec(viewport()->mapToGlobal(position));
}

void Sidebar::keyPressEvent(QKeyEvent* event) {
    auto chosen = selection();
    if (chosen && (event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace)) {
        auto items = selectedItems();
        if (chosen->kind == RowKind::clone || items.first()->data(0, DeletableRole).toBool())
            emit deleteRequested(chosen->kind, chosen->id);
        return;
    }
    QTreeWidget::keyPressEvent(event);
}

}  // namespace parlova::ui
