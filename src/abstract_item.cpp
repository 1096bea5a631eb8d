// SPDX-License-Identifier: MIT
#include "abstract_item.hpp"

#include "logger.hpp"
#include "utility_functions.hpp"

namespace TARNOK {

namespace {

// The text of a cell with a number; empty for 0.
template <typename Number>
QVariant cell(Number number)
{
    return number == Number(0) ? QVariant(AbstractItem::EMPTY) : QVariant(number);
}

} // namespace

const QString AbstractItem::EMPTY;

AbstractItem::AbstractItem(AbstractItem* parent, RTTI_TYPE type)
    : mParent(parent)
    , mType(type)
{ }

QVariant AbstractItem::data(int column) const
{
    switch (column) {
    case COLUMN_NAME:
        return fileName();
    case COLUMN_SAMPLE_RATE:
        return cell(sampleRate());
    case COLUMN_FORMAT:
        return format() == KESS_SOUND_FORMAT_NONE ? QVariant(EMPTY) : QVariant(QString(fileFormatToString(format())));
    case COLUMN_TYPE:
        return fileType();
    case COLUMN_SIZE:
        return cell(fileSizeCurrent());
    case COLUMN_LOCATION:
        return fileLocation();
    case COLUMN_LENGTH:
        return cell(length_ms());
    case COLUMN_CHANNELS:
        return cell(channelCount());
    default:
        Q_ASSERT(!"column out of range");
        return EMPTY;
    }
}

bool AbstractItem::reparent(AbstractItem* newParent, int row)
{
    Q_ASSERT(newParent);
    Q_ASSERT(mParent);
    Q_ASSERT(row >= 0);
    Q_ASSERT(mParent->type() == newParent->type());

    const bool disowned = mParent->disown(this);
    Q_ASSERT(disowned);
    mParent = nullptr;

    const bool adopted = newParent->adopt(this, row);
    if (!adopted)
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: Internal error: Orphan item!");
    Q_ASSERT(adopted);

    mParent = newParent;
    mDirty = true;
    return true;
}

void AbstractItem::release()
{
    Q_ASSERT(mParent);
    Q_ASSERT(mType != RTTI_WORKSPACE);

    const bool disowned = mParent->disown(this);
    Q_ASSERT(disowned);
    delete this;
}

bool AbstractItem::disown(AbstractItem*)
{
    Q_ASSERT(!"this item has no children to disown");
    return false;
}

bool AbstractItem::adopt(AbstractItem*, int)
{
    Q_ASSERT(!"this item can't adopt children");
    return false;
}

} // namespace TARNOK
