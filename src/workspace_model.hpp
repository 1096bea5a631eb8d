// SPDX-License-Identifier: MIT
// The project tree as a model for item views, and the operations with which a user restructures it.
#pragma once

#include "abstract_item.hpp"

#include <QAbstractItemModel>
#include <QIcon>
#include <QList>
#include <QMap>
#include <QSet>
#include <QSortFilterProxyModel>
#include <QString>

namespace TARNOK {

class SoundBank;
class SourceFile;
class Subsound;

// Keeps no copy of the tree: every index contains its item, and all data is read from the item. Every change is
// reported as a reset of the whole model.
class WorkspaceModel : public QAbstractItemModel
{
    Q_OBJECT

public:
    explicit WorkspaceModel(QObject* parent);

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& index) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    Qt::DropActions supportedDropActions() const override { return Qt::MoveAction; }

    // The first column's index of an item, which must not be null.
    QModelIndex indexForItem(AbstractItem* item) const
    {
        if (!item)
            Q_ASSERT(false);
        return createIndex(rowOfItem(item), 0, item);
    }

    // The same for a caller that knows the item's row, without a search.
    QModelIndex indexForItem(AbstractItem* item, int row) const { return createIndex(row, 0, item); }

    // Reports a reset, for changes to the tree that the caller has made or is about to make itself.
    void pulseReset();

    // Whether b's channels may join a's; a refusal is logged.
    bool canInterleave(AbstractItem* a, AbstractItem* b);

public slots:
    // Merges all other subsounds, of one file each, into the first, and returns it. One that can't be interleaved is
    // skipped.
    Subsound* interleaveSubsounds(QList<Subsound*>& subsounds);

    void removeItems(QList<AbstractItem*>& items);

    // Executes a drop: the items are moved before the target, or into it. Without a target the drop is ignored.
    void moveItems(AbstractItem* target, QList<AbstractItem*> items);

private:
    static int rowOfItem(const AbstractItem* item);
    AbstractItem* itemOf(const QModelIndex& index) const;
    QVariant iconOf(const AbstractItem* item) const;

    // One dragged item of a drop.
    void moveOntoSourceFile(AbstractItem* target, AbstractItem* item);
    void moveOntoSubsoundOrBank(AbstractItem* target, AbstractItem* item);
    void moveFileToNewSubsound(SoundBank* bank, AbstractItem* target, SourceFile* file);

    // Removes a subsound from its bank and destroys it with its remaining files.
    void removeSubsound(Subsound* subsound);
    void noteDestruction(const AbstractItem* item);

    // Moves item immediately before target, in newParent.
    bool moveItemInternal(AbstractItem* item, AbstractItem* newParent, AbstractItem* target);

    // Hooks for updates of single rows, which the model doesn't do.
    void insertRowInternal(AbstractItem*) { }
    void removeRowInternal(AbstractItem*) { }
    void refreshSingleSubsound(Subsound*) { }

    AbstractItem* mRoot; // not owned
    QMap<int, QString> mHeaders;
    QMap<RTTI_TYPE, QIcon> mIcons;

    // Items that the current operation has destroyed. Only addresses are compared, to skip such items in its list.
    QSet<const AbstractItem*> mDestroyed;
};

// The layer between the tree and its view: decides which rows are shown, makes every row draggable and droppable, and
// creates the payload of a drag.
//
// The payload is the sequence of the items' addresses as raw bytes. It is only valid inside this process, while the
// items exist.
class ProxyTreeModel : public QSortFilterProxyModel
{
    Q_OBJECT

public:
    static constexpr const char* ROWS_MIME_TYPE = "application/tree.rows";
    static constexpr const char* URLS_MIME_TYPE = "text/uri-list";

    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QList<QModelIndex>& indexes) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

protected:
    bool filterAcceptsRow(int source_row, const QModelIndex& source_parent) const override;

private:
    bool checkChildren(QModelIndex index) const;
};

} // namespace TARNOK
