// SPDX-License-Identifier: MIT
// The item tree: Workspace > SoundBank > Subsound > SourceFile, and what the four levels share.
#pragma once

#include "kess.h"

#include <QList>
#include <QString>
#include <QVariant>
#include <QXmlStreamWriter>

namespace TARNOK {

class XmlStreamIterator;

// Something that is stored in a file and knows whether it has unsaved changes. A new object has.
class Serializable
{
public:
    Serializable() = default;
    virtual ~Serializable() = default;
    Serializable(const Serializable&) = delete;
    Serializable& operator=(const Serializable&) = delete;

    virtual bool serialize(QXmlStreamWriter* writer) const = 0;
    virtual bool deserialize(XmlStreamIterator& xml) = 0;
    virtual bool isDirty() const { return mDirty; }
    virtual void makeClean() { mDirty = false; }
    void makeDirty() { mDirty = true; }

protected:
    // Every setter uses this: it stores the value, and marks the object as modified, only if the value differs.
    template <typename Field, typename Value>
    void change(Field& field, const Value& value)
    {
        if (field == value)
            return;
        field = value;
        mDirty = true;
    }

    bool mDirty = true;
};

// The concrete class of an item.
enum RTTI_TYPE : quint32
{
    RTTI_SOURCEFILE = 0,
    RTTI_SUBSOUND = 1,
    RTTI_SOUNDBANK = 2,
    RTTI_WORKSPACE = 3,
};

// What a tree shows of a row, in this order.
enum Column
{
    COLUMN_NAME,
    COLUMN_SAMPLE_RATE, // hertz
    COLUMN_FORMAT, // of a sample
    COLUMN_TYPE, // of the file
    COLUMN_SIZE, // kilobytes
    COLUMN_LOCATION,
    COLUMN_LENGTH, // milliseconds
    COLUMN_CHANNELS,
    COLUMN_COUNT
};

// One row of the project. Its parent's list owns it; mParent does not own.
class AbstractItem : public Serializable
{
public:
    AbstractItem(AbstractItem* parent, RTTI_TYPE type);

    AbstractItem* parent() const { return mParent; }
    RTTI_TYPE type() const { return mType; }

    // The text or number in a Column; an empty string if the item has none. Any other column aborts.
    QVariant data(int column) const;

    // Moves this item to another parent of the same kind, or within its own; row counts after the removal.
    bool reparent(AbstractItem* newParent, int row);

    // Takes this item out of its parent's list and deletes it.
    void release();

    virtual bool disown(AbstractItem* item);
    virtual bool adopt(AbstractItem* item, int row);
    virtual int rowOf(const AbstractItem* item) const = 0;
    virtual int childCount() const = 0;
    virtual AbstractItem* child(int row) const = 0;
    virtual void appendChild(AbstractItem* item) = 0;

    virtual const QString& fileName() const { return EMPTY; }
    virtual const QString& fileType() const { return EMPTY; }
    virtual float fileSizeCurrent() const { return 0; }
    virtual float fileSizeEstimate() const { return 0; }
    virtual const QString& fileLocation() const { return EMPTY; }
    virtual int sampleRate() const { return 0; }
    virtual KESS_SOUND_FORMAT format() const { return KESS_SOUND_FORMAT_NONE; }
    virtual int length_ms() const { return 0; }
    virtual int channelCount() const { return 0; }
    virtual int subsoundIndex() const { return 0; }
    virtual unsigned int subsoundQuality() const { return 0; }

    // What a string accessor returns if there is no value.
    static const QString EMPTY;

protected:
    // Row in the parent, for the log lines of the destructors; 0 without a parent.
    int ownRow() const { return mParent ? mParent->rowOf(this) : 0; }

private:
    AbstractItem* mParent;
    RTTI_TYPE mType;
};

// Deletes the entries of a container's list at the container's end and leaves the list as it is, so that a child can
// still ask its parent for its row while it dies.
template <typename T>
class ItemContainerCleanup
{
public:
    explicit ItemContainerCleanup(QList<T*>* list)
        : mList(list)
    { }

    ~ItemContainerCleanup()
    {
        for (T* item : std::as_const(*mList))
            delete item;
    }

    ItemContainerCleanup(const ItemContainerCleanup&) = delete;
    ItemContainerCleanup& operator=(const ItemContainerCleanup&) = delete;

private:
    QList<T*>* mList;
};

// An item that is itself the list of its children, all of one type, and owns them.
template <typename T>
class AbstractItemContainer : public AbstractItem, public QList<T*>
{
public:
    AbstractItemContainer(AbstractItem* parent, RTTI_TYPE type)
        : AbstractItem(parent, type)
        , mCleanup(this)
    { }

    using AbstractItem::data;

    // Makes a default child at the end of the list.
    T* newItem()
    {
        T* item = new T(this);
        this->append(item);
        return item;
    }

    // Takes item out of the list without deleting it. Returns whether it was in the list.
    bool disown(T* item)
    {
        const auto num = this->removeAll(item);
        Q_ASSERT(num <= 1);
        return num == 1;
    }

    // Takes item, which must be in the list, out of it and deletes it.
    void deleteItem(T* item)
    {
        const auto num = this->removeAll(item);
        Q_ASSERT(num == 1);
        delete item;
    }

    bool serializeChildren(QXmlStreamWriter* writer) const
    {
        for (const T* item : *this) {
            if (!item->serialize(writer))
                return false;
        }
        return true;
    }

    bool isDirty() const override
    {
        for (const T* item : *this) {
            if (item->isDirty())
                return true;
        }
        return mDirty;
    }

    void makeClean() override
    {
        for (T* item : std::as_const(*this))
            item->makeClean();
        mDirty = false;
    }

    bool disown(AbstractItem* item) override
    {
        const auto num = this->removeAll(static_cast<T*>(item));
        Q_ASSERT(num == 1);
        return true;
    }

    bool adopt(AbstractItem* item, int row) override
    {
        this->insert(row, static_cast<T*>(item));
        return true;
    }

    int rowOf(const AbstractItem* item) const override
    {
        // A view visits its rows in order and asks for each of them more than once.
        for (const int row : {mRowFoundLast, mRowFoundLast + 1}) {
            if (row < this->size() && this->at(row) == item)
                return mRowFoundLast = row;
        }
        for (int row = 0; row < this->size(); ++row) {
            if (this->at(row) == item)
                return mRowFoundLast = row;
        }
        return -1;
    }

    int childCount() const override { return static_cast<int>(this->size()); }
    AbstractItem* child(int row) const override { return row < childCount() ? this->at(row) : nullptr; }
    void appendChild(AbstractItem* item) override { this->append(static_cast<T*>(item)); }

private:
    mutable int mRowFoundLast = 0;
    ItemContainerCleanup<T> mCleanup; // the last member: dying children ask for their row
};

} // namespace TARNOK
