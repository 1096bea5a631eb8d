// SPDX-License-Identifier: MIT
#include "workspace_model.hpp"

#include "logger.hpp"
#include "sound_bank.hpp"
#include "workspace.hpp"

#include <QByteArray>
#include <QDataStream>
#include <QIODevice>
#include <QMimeData>
#include <QRegularExpression>

#include <utility>

namespace TARNOK {

WorkspaceModel::WorkspaceModel(QObject* parent)
    : QAbstractItemModel(parent)
    , mRoot(workspace())
    , mHeaders{{COLUMN_NAME, "Name"},          {COLUMN_SAMPLE_RATE, "Sample rate (Hz)"},
               {COLUMN_FORMAT, "Format"},      {COLUMN_TYPE, "Type"},
               {COLUMN_SIZE, "Size (Kb)"},     {COLUMN_LOCATION, "Location"},
               {COLUMN_LENGTH, "Length (ms)"}, {COLUMN_CHANNELS, "Channels"}}
    , mIcons{{RTTI_SOUNDBANK, QIcon(":/treeicon_bank.png")},
             {RTTI_SUBSOUND, QIcon(":/treeicon_subsound.png")},
             {RTTI_SOURCEFILE, QIcon(":/treeicon_sourcefile.png")}}
{ }

int WorkspaceModel::rowOfItem(const AbstractItem* item)
{
    return item->parent() ? item->parent()->rowOf(item) : 0;
}

AbstractItem* WorkspaceModel::itemOf(const QModelIndex& index) const
{
    return index.isValid() ? static_cast<AbstractItem*>(index.internalPointer()) : mRoot;
}

QModelIndex WorkspaceModel::index(int row, int column, const QModelIndex& parent) const
{
    AbstractItem* item = mRoot->childCount() > 0 ? itemOf(parent) : mRoot;
    AbstractItem* child = row < 0 ? nullptr : item->child(row);
    return child ? createIndex(row, column, child) : QModelIndex();
}

QModelIndex WorkspaceModel::parent(const QModelIndex& index) const
{
    if (!index.isValid() || mRoot->childCount() == 0)
        return {};
    AbstractItem* parent = itemOf(index)->parent();
    if (!parent || parent == mRoot)
        return {};
    return createIndex(rowOfItem(parent), 0, parent);
}

int WorkspaceModel::rowCount(const QModelIndex& parent) const
{
    return itemOf(parent)->childCount();
}

int WorkspaceModel::columnCount(const QModelIndex&) const
{
    return static_cast<int>(mHeaders.size());
}

QVariant WorkspaceModel::iconOf(const AbstractItem* item) const
{
    const auto icon = mIcons.constFind(item->type());
    return icon == mIcons.constEnd() ? QVariant() : QVariant(*icon);
}

QVariant WorkspaceModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid())
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return itemOf(index)->data(index.column());
    case Qt::DecorationRole:
        return index.column() == COLUMN_NAME ? iconOf(itemOf(index)) : QVariant();
    case Qt::TextAlignmentRole:
        return static_cast<int>(index.column() == COLUMN_SIZE ? Qt::AlignRight : Qt::AlignLeft);
    default:
        return {};
    }
}

QVariant WorkspaceModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    return mHeaders.value(section, "");
}

Qt::ItemFlags WorkspaceModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::ItemIsEnabled;
    const Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsDropEnabled;
    switch (itemOf(index)->type()) {
    case RTTI_SOURCEFILE:
    case RTTI_SUBSOUND:
        return flags | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled;
    case RTTI_SOUNDBANK:
        return flags | Qt::ItemIsSelectable;
    default:
        return flags;
    }
}

void WorkspaceModel::pulseReset()
{
    beginResetModel();
    endResetModel();
}

bool WorkspaceModel::canInterleave(AbstractItem* a, AbstractItem* b)
{
    const QByteArray name = b->fileName().toUtf8();
    if (a->channelCount() + b->channelCount() > MAX_INTERLEAVED_CHANNELS) {
        logger()->println(Logger::OUTPUT_ERROR,
                          "ERROR: Could not interleave '%s': would exceed maximum of %d interleaved channels",
                          name.constData(), MAX_INTERLEAVED_CHANNELS);
        return false;
    }
    // There is no separate message for the sample format.
    if (a->sampleRate() != b->sampleRate() || a->format() != b->format()) {
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: Could not interleave '%s': files have different samplerates",
                          name.constData());
        return false;
    }
    return true;
}

bool WorkspaceModel::moveItemInternal(AbstractItem* item, AbstractItem* newParent, AbstractItem* target)
{
    if (!item || !newParent || !target)
        Q_ASSERT(false);

    // If the target is a bank, its own row is the position: items dropped on the first bank are moved to its top.
    int position = rowOfItem(target);
    if (item->parent() == newParent && rowOfItem(item) < position)
        --position;
    item->reparent(newParent, position);
    return true;
}

void WorkspaceModel::moveItems(AbstractItem* target, QList<AbstractItem*> items)
{
    if (!target) {
        logger()->println(Logger::OUTPUT_DEBUG, "drop ignored");
        return;
    }

    beginResetModel();
    mDestroyed.clear();
    for (AbstractItem* item : std::as_const(items)) {
        // A sound that is dropped on one of its own files removes the target, and one that is dragged together with its
        // files removes those.
        if (mDestroyed.contains(target))
            break;
        if (mDestroyed.contains(item))
            continue;
        switch (target->type()) {
        case RTTI_SOURCEFILE:
            moveOntoSourceFile(target, item);
            break;
        case RTTI_SUBSOUND:
        case RTTI_SOUNDBANK:
            moveOntoSubsoundOrBank(target, item);
            break;
        default:
            Q_ASSERT(false);
        }
    }
    endResetModel();
}

void WorkspaceModel::noteDestruction(const AbstractItem* item)
{
    mDestroyed.insert(item);
    if (item->type() == RTTI_SUBSOUND) {
        for (const SourceFile* file : *static_cast<const Subsound*>(item))
            mDestroyed.insert(file);
    }
}

void WorkspaceModel::removeSubsound(Subsound* subsound)
{
    noteDestruction(subsound);
    static_cast<SoundBank*>(subsound->parent())->deleteItem(subsound);
}

void WorkspaceModel::moveOntoSourceFile(AbstractItem* target, AbstractItem* item)
{
    auto* receiver = static_cast<Subsound*>(target->parent());
    if (item->type() == RTTI_SUBSOUND)
        logger()->println(Logger::OUTPUT_DEBUG, "drag:sub, drop:src");
    else if (item->type() == RTTI_SOURCEFILE)
        logger()->println(Logger::OUTPUT_DEBUG, "drag:src, drop:src");
    if (!canInterleave(receiver, item))
        return;

    switch (item->type()) {
    case RTTI_SUBSOUND: {
        // The list shrinks while the index rises: every second file is moved, and the others are deleted with their
        // subsound.
        auto* subsound = static_cast<Subsound*>(item);
        for (int i = 0; i < subsound->size(); ++i)
            moveItemInternal(subsound->at(i), receiver, target);
        removeSubsound(subsound);
        break;
    }
    case RTTI_SOURCEFILE: {
        moveItemInternal(item, receiver, target);
        // By now the parent is the receiver, which is never empty: a subsound that lost all its files this way is kept.
        auto* parent = static_cast<Subsound*>(item->parent());
        if (parent->isEmpty())
            removeSubsound(parent);
        break;
    }
    default:
        Q_ASSERT(false);
    }
}

void WorkspaceModel::moveOntoSubsoundOrBank(AbstractItem* target, AbstractItem* item)
{
    auto* bank = static_cast<SoundBank*>(target->type() == RTTI_SOUNDBANK ? target : target->parent());
    switch (item->type()) {
    case RTTI_SUBSOUND:
        logger()->println(Logger::OUTPUT_DEBUG, "drag:sub [%d], drop:sub [%d]", rowOfItem(item), rowOfItem(target));
        moveItemInternal(item, bank, target);
        break;
    case RTTI_SOURCEFILE:
        logger()->println(Logger::OUTPUT_DEBUG, "drag:src, drop:sub");
        moveFileToNewSubsound(bank, target, static_cast<SourceFile*>(item));
        break;
    default:
        Q_ASSERT(false);
    }
}

void WorkspaceModel::moveFileToNewSubsound(SoundBank* bank, AbstractItem* target, SourceFile* file)
{
    auto* former = static_cast<Subsound*>(file->parent());
    Subsound* subsound = bank->newItem();
    subsound->reparent(bank, rowOfItem(target));
    file->reparent(subsound, 0);
    if (former->isEmpty())
        removeSubsound(former);
}

Subsound* WorkspaceModel::interleaveSubsounds(QList<Subsound*>& subsounds)
{
    Subsound* interleavedSubsound = subsounds.first();
    AbstractItem* bank = interleavedSubsound->parent();
    beginResetModel();
    mDestroyed.clear();

    int position = static_cast<int>(interleavedSubsound->size());
    for (Subsound* sound : subsounds.mid(1)) {
        Q_ASSERT(sound->parent() == bank);
        Q_ASSERT(sound != interleavedSubsound);
        if (!canInterleave(interleavedSubsound, sound))
            continue;

        // A sound of several files must not be merged: the range check of the list aborts the process.
        const int count = static_cast<int>(sound->size());
        for (int i = 0; i < count; ++i)
            sound->at(i)->reparent(interleavedSubsound, position + i);
        position += count;
        Q_ASSERT(sound->isEmpty());
        removeSubsound(sound);
    }

    logger()->println(Logger::OUTPUT_DEBUG, "interleaved subsound with %d sourcefiles", position);
    endResetModel();
    return interleavedSubsound;
}

void WorkspaceModel::removeItems(QList<AbstractItem*>& items)
{
    beginResetModel();
    mDestroyed.clear();
    for (AbstractItem* item : std::as_const(items)) {
        // A file that is listed together with its subsound may have been deleted with it.
        if (mDestroyed.contains(item))
            continue;
        AbstractItem* parent = item->parent();
        noteDestruction(item);
        item->release();
        if (parent->type() != RTTI_SUBSOUND)
            continue;
        // The last file of a sound is deleted with its subsound, never alone: first() aborts on an empty list.
        auto* subsound = static_cast<Subsound*>(parent);
        if (subsound->size() < 2)
            (void)subsound->first();
    }
    endResetModel();
}

QStringList ProxyTreeModel::mimeTypes() const
{
    return {ROWS_MIME_TYPE, URLS_MIME_TYPE};
}

QMimeData* ProxyTreeModel::mimeData(const QList<QModelIndex>& indexes) const
{
    QByteArray rows;
    QDataStream stream(&rows, QIODevice::WriteOnly);
    for (const QModelIndex& index : indexes) {
        // A selected row has one index per column.
        if (!index.isValid() || index.column() != COLUMN_NAME)
            continue;
        const void* item = mapToSource(index).internalPointer();
        if (item)
            stream.writeRawData(reinterpret_cast<const char*>(&item), sizeof item);
    }

    auto* data = new QMimeData;
    data->setData(ROWS_MIME_TYPE, rows);
    return data;
}

Qt::ItemFlags ProxyTreeModel::flags(const QModelIndex& index) const
{
    const Qt::ItemFlags flags = QSortFilterProxyModel::flags(index) | Qt::ItemIsDropEnabled;
    return index.isValid() ? flags | Qt::ItemIsDragEnabled : flags;
}

bool ProxyTreeModel::filterAcceptsRow(int source_row, const QModelIndex& source_parent) const
{
    return checkChildren(sourceModel()->index(source_row, 0, source_parent));
}

bool ProxyTreeModel::checkChildren(QModelIndex index) const
{
    QModelIndex child = index.model()->index(0, 0, index);
    // A leaf is filtered by the text of its missing child, which is always empty, and not by its own name.
    if (!child.isValid())
        return child.data().toString().contains(filterRegularExpression());

    bool accepted = false;
    for (int row = 0; child.isValid(); child = child.sibling(++row, 0))
        accepted |= checkChildren(child);
    return accepted;
}

} // namespace TARNOK
