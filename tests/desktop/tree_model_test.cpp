// SPDX-License-Identifier: MIT
#include "workspace_model.hpp"

#include "desktop_test.hpp"

using namespace TARNOK;
using namespace tests;

namespace {

struct TreeModelTest : DesktopTest
{
    WorkspaceModel mModel{nullptr};
};

struct Drop
{
    const char* before;
    const char* dragged; // positions, separated by blanks
    const char* target;
    const char* after;
    QStringList lines = {};
};

const QString CHANNELS = "ERROR: Could not interleave '%1': would exceed maximum of 16 interleaved channels";
const QString RATES = "ERROR: Could not interleave '%1': files have different samplerates";

const Drop DROPS[] = {
    // Sounds are moved before other sounds or to the start of a bank, in their order.
    {"a b c", "2", "0", "c a b", {"drag:sub [2], drop:sub [0]"}},
    {"a b c", "0", "2", "b a c"},
    {"a b c d", "0 1", "3", "c a b d"},
    {"a b c", "2", "bank", "c a b", {"drag:sub [2], drop:sub [0]"}},
    {"a b", "1", "1", "a b"},
    // Files become separate sounds.
    {"a+b c", "0.0", "1", "b a c", {"drag:src, drop:sub"}},
    {"a+b c", "0.0 0.1", "1", "a b c"},
    {"a b+c", "1.1", "bank", "c a b"},
    {"a+b c", "0.0 0.1", "0", "a b c"},
    // A sound joins another one. If it has several files, every second file is lost with it.
    {"a b+c", "0", "1.1", "b+a+c", {"drag:sub, drop:src"}},
    {"a+b c+d", "0", "1.0", "a+c+d"},
    {"a+b+c+d e+f", "0", "1.0", "a+c+e+f"},
    // Files join another sound. The sound that they leave may become empty.
    {"a+b c+d", "0.0", "1.1", "b c+a+d", {"drag:src, drop:src"}},
    {"a+b c+d", "0.0 0.1", "1.0", "- a+b+c+d"},
    {"a+b+c", "0.2", "0.0", "c+a+b"},
    {"a+b+c", "0.0", "0.2", "b+a+c"},
    // Items that can't be moved are skipped; the others are moved.
    {"x a b+c", "0 1", "2.0", "x a+b+c", {RATES.arg("x"), "drag:sub, drop:src"}},
    {"y b+c", "0", "1.0", "y b+c", {RATES.arg("y")}},
    {"w v+a", "0", "1.0", "w+v+a"},
    {"w w+a", "0", "1.0", "w w+a", {CHANNELS.arg("w")}},
    {"w+a", "0.0", "0.1", "w+a", {CHANNELS.arg("w")}},
    {"a b+c", "bank", "1.0", "a b+c", {RATES.arg("out")}},
    // A sound that is dropped on its own file is gone, and so is the target. The other dragged items stay where they
    // are.
    {"a+b c", "0", "0.0", "c"},
    {"a+b c", "0 1", "0.0", "c"},
    // Files that are dragged together with their sound may be gone before they are moved.
    {"a+b c+d", "0 0.0 0.1", "1.0", "a+c+d"},
};

} // namespace

TEST_F(TreeModelTest, rowsShowTheValuesOfTheItemsUntilTheseAreRemoved)
{
    SoundBank* bank = makeBank("a y+b+x");
    const QModelIndex root = mModel.index(0, 0);
    const QModelIndex leaf = mModel.index(0, 0, root);
    const QModelIndex merged = mModel.index(1, 0, root);
    const QModelIndex file = mModel.index(2, 0, merged);
    EXPECT_EQ(mModel.rowCount(leaf), 0);
    EXPECT_EQ(mModel.rowCount(merged), 3);
    EXPECT_EQ(mModel.parent(file), merged);
    EXPECT_EQ(mModel.parent(merged), root);
    EXPECT_EQ(mModel.indexForItem(bank->at(1)->at(2)), file);
    EXPECT_DEATH((void)mModel.indexForItem(nullptr), "false");

    const auto texts = [&](const QModelIndex& index) {
        QStringList cells;
        for (int column = 0; column < mModel.columnCount(); ++column)
            cells.append(index.siblingAtColumn(column).data().toString());
        return cells;
    };
    QStringList headers;
    for (int column = 0; column < mModel.columnCount(); ++column)
        headers.append(mModel.headerData(column, Qt::Horizontal).toString());
    EXPECT_EQ(headers,
              QStringList(
                  {"Name", "Sample rate (Hz)", "Format", "Type", "Size (Kb)", "Location", "Length (ms)", "Channels"}));
    EXPECT_EQ(mModel.headerData(8, Qt::Horizontal), QVariant(""));
    EXPECT_FALSE(mModel.headerData(0, Qt::Vertical).isValid());
    EXPECT_EQ(texts(root), QStringList({"out", "", "", "tnb", "", path("Bank"), "", ""}));
    EXPECT_EQ(texts(leaf), QStringList({"a", "44100", "16-bit PCM", "wav", "1", path("").chopped(1), "1000", "1"}));
    EXPECT_EQ(texts(merged), QStringList({"y", "44100", "24-bit PCM", "", "3", "", "3000", "3"}));
    EXPECT_EQ(texts(file), QStringList({"x", "48000", "16-bit PCM", "wav", "1", path("").chopped(1), "3000", "1"}));

    bank->unload();
    EXPECT_EQ(mModel.rowCount(), 0);
    EXPECT_FALSE(mModel.index(0, 0).isValid());
    EXPECT_FALSE(mModel.parent(file).isValid());
}

TEST_F(TreeModelTest, rowsHaveIconsInTheirFirstColumnAndAreDraggedBelowTheBank)
{
    makeBank("a y+b+x");
    const QModelIndex root = mModel.index(0, 0);
    const QModelIndex leaf = mModel.index(0, 0, root);
    const QModelIndex file = mModel.index(2, 0, mModel.index(1, 0, root));
    EXPECT_EQ(mModel.data(leaf.siblingAtColumn(4), Qt::TextAlignmentRole), QVariant(2));
    EXPECT_EQ(mModel.data(leaf, Qt::TextAlignmentRole), QVariant(1));
    EXPECT_FALSE(mModel.data(leaf, Qt::ToolTipRole).isValid());
    for (const QModelIndex& index : {root, leaf, file}) {
        EXPECT_FALSE(mModel.data(index, Qt::DecorationRole).value<QIcon>().isNull());
        EXPECT_FALSE(mModel.data(index.siblingAtColumn(1), Qt::DecorationRole).isValid());
    }

    const Qt::ItemFlags drop = Qt::ItemIsEnabled | Qt::ItemIsDropEnabled;
    EXPECT_EQ(mModel.flags(root), drop | Qt::ItemIsSelectable);
    EXPECT_EQ(mModel.flags(leaf), drop | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled);
    EXPECT_EQ(mModel.flags({}), Qt::ItemIsEnabled);
    EXPECT_EQ(mModel.supportedDropActions(), Qt::MoveAction);
}

TEST_F(TreeModelTest, aDropMovesMergesOrSplitsByWhatIsDraggedOntoWhatAndAbortsForWrongKinds)
{
    for (const Drop& drop : DROPS) {
        SoundBank* bank = makeBank(drop.before);
        QSignalSpy resets(&mModel, SIGNAL(modelReset()));
        QList<AbstractItem*> items;
        for (const QString& position : QString(drop.dragged).split(' '))
            items.append(itemAt(bank, position));
        const QStringList lines = loggedLines([&] { mModel.moveItems(itemAt(bank, drop.target), items); });
        const std::string name = std::string(drop.before) + ": " + drop.dragged + " onto " + drop.target;
        EXPECT_EQ(describe(bank), drop.after) << name;
        EXPECT_EQ(resets.size(), 1) << name;
        for (const QString& line : drop.lines)
            EXPECT_TRUE(lines.contains(line)) << name << ": " << line.toStdString();
        bank->unload();
    }

    SoundBank* bank = makeBank("a b+c");
    QSignalSpy resets(&mModel, SIGNAL(modelAboutToBeReset()));
    EXPECT_EQ(loggedLines([&] { mModel.moveItems(nullptr, {bank->at(0)}); }), QStringList("drop ignored"));
    EXPECT_TRUE(resets.isEmpty());
    EXPECT_DEATH(mModel.moveItems(workspace(), {bank->at(0)}), "false");
    EXPECT_DEATH(mModel.moveItems(bank->at(0), {bank}), "false");
    EXPECT_DEATH(mModel.moveItems(bank, {bank}), "false");
}

TEST_F(TreeModelTest, interleavingMergesTheLaterSoundsOfOneFileIntoTheFirst)
{
    const std::tuple<const char*, QList<int>, const char*, QString> cases[] = {
        {"a b c", {0, 2}, "a+c b", "interleaved subsound with 2 sourcefiles"},
        {"a b c", {2, 0, 1}, "c+a+b", "interleaved subsound with 3 sourcefiles"},
        {"a+b c", {0, 1}, "a+b+c", "interleaved subsound with 3 sourcefiles"},
        {"a x b", {0, 1, 2}, "a+b x", RATES.arg("x")},
        {"w v a b", {0, 1, 2, 3}, "w+v+a b", CHANNELS.arg("b")},
    };
    for (const auto& [before, selected, after, line] : cases) {
        SoundBank* bank = makeBank(before);
        QList<Subsound*> subsounds;
        for (const int row : selected)
            subsounds.append(bank->at(row));
        Subsound* first = subsounds.first();
        const QStringList lines = loggedLines([&] { EXPECT_EQ(mModel.interleaveSubsounds(subsounds), first); });
        EXPECT_EQ(describe(bank), after);
        EXPECT_TRUE(lines.contains(line)) << before;
        bank->unload();
    }

    SoundBank* bank = makeBank("a b+c");
    QList<Subsound*> several = *bank;
    EXPECT_DEATH(mModel.interleaveSubsounds(several), "index out of range");
    QList<Subsound*> twice = {bank->at(0), bank->at(0)};
    EXPECT_DEATH(mModel.interleaveSubsounds(twice), "sound != interleavedSubsound");
}

TEST_F(TreeModelTest, removingAFileLeavesALeafAndRemovingTheLastOneAborts)
{
    SoundBank* bank = makeBank("a b+c d+e f");
    QList<AbstractItem*> items = {bank->at(0), itemAt(bank, "1.0")};
    mModel.removeItems(items);
    EXPECT_EQ(describe(bank), "c d+e f");
    EXPECT_EQ(mModel.rowCount(mModel.index(0, 0, mModel.index(0, 0))), 0);

    QList<AbstractItem*> both = {itemAt(bank, "1.0"), itemAt(bank, "1.1")};
    EXPECT_DEATH(mModel.removeItems(both), "!isEmpty");

    QList<AbstractItem*> withItsFile = {bank->at(1), itemAt(bank, "1.0"), bank->at(2)};
    mModel.removeItems(withItsFile);
    EXPECT_EQ(describe(bank), "c");
}

TEST_F(TreeModelTest, theProxyShowsEveryRowAndCarriesItsItemsAddress)
{
    SoundBank* bank = makeBank("a b+c d");
    ProxyTreeModel proxy;
    proxy.setSourceModel(&mModel);
    const QModelIndex root = proxy.index(0, 0);
    ASSERT_EQ(proxy.rowCount(root), 3);
    EXPECT_EQ(proxy.rowCount(proxy.index(1, 0, root)), 2);
    EXPECT_EQ(proxy.mimeTypes(), QStringList({"application/tree.rows", "text/uri-list"}));
    EXPECT_TRUE(proxy.flags(root) & Qt::ItemIsDragEnabled);
    EXPECT_TRUE(proxy.flags({}) & Qt::ItemIsDropEnabled);
    EXPECT_FALSE(proxy.flags({}) & Qt::ItemIsDragEnabled);

    QList<QModelIndex> indexes = {QModelIndex()};
    for (const int row : {2, 0}) {
        for (int column = 0; column < proxy.columnCount(); ++column)
            indexes.append(proxy.index(row, column, root));
    }
    const std::unique_ptr<QMimeData> rows(proxy.mimeData(indexes));
    const AbstractItem* const items[] = {bank->at(2), bank->at(0)};
    EXPECT_EQ(rows->data("application/tree.rows"), QByteArray(reinterpret_cast<const char*>(items), sizeof items));

    // The empty string decides about a leaf, not its name.
    proxy.setFilterFixedString("a");
    EXPECT_EQ(proxy.rowCount(), 0);
    proxy.setFilterRegularExpression("a*");
    EXPECT_EQ(proxy.rowCount(proxy.index(0, 0)), 3);
}
