// SPDX-License-Identifier: MIT
#include "project_browser.hpp"

#include "desktop_test.hpp"
#include "workspace_model.hpp"

using namespace TARNOK;
using namespace tests;

namespace {

struct ProjectBrowserTest : DesktopTest
{
    void open(const QString& project)
    {
        mBank = makeBank(project);
        mBrowser = std::make_unique<ProjectBrowser>(nullptr);
        mBrowser->resize(600, 300);
        mBrowser->show();
        mBrowser->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(mBrowser.get()));
        mBrowser->expandItem(mBank);
        mView = mBrowser->findChild<ProjectTreeView*>();
        mView->setFocus();
    }

    void TearDown() override { mBrowser.reset(); }

    // The view's index of an item, found by walking over the rows.
    QModelIndex indexAt(const QString& position) const
    {
        QModelIndex index = mView->model()->index(0, 0);
        for (const QString& row : QString(position).remove("bank").split('.', Qt::SkipEmptyParts))
            index = mView->model()->index(row.toInt(), 0, index);
        return index;
    }

    void select(const QString& positions)
    {
        mView->selectionModel()->clear();
        for (const QString& position : positions.split(' ', Qt::SkipEmptyParts))
            mView->selectionModel()->select(indexAt(position), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }

    // Sends the viewport an event of a drag from this program. Returns whether it was accepted.
    template <typename Event>
    bool drag(const QPoint& position, const QMimeData* data)
    {
        Event event(position, Qt::MoveAction, data, Qt::LeftButton, Qt::NoModifier);
        event.ignore();
        QCoreApplication::sendEvent(mView->viewport(), &event);
        return event.isAccepted();
    }

    // The drop line is the only child of the view that is transparent for the mouse.
    QRect lineGeometry() const
    {
        for (QWidget* child : mView->findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly)) {
            if (child->testAttribute(Qt::WA_TransparentForMouseEvents))
                return child->geometry();
        }
        return {};
    }

    std::unique_ptr<QMimeData> row(const QString& position) const
    {
        return std::unique_ptr<QMimeData>(mView->model()->mimeData({indexAt(position)}));
    }

    SoundBank* mBank = nullptr;
    std::unique_ptr<ProjectBrowser> mBrowser;
    ProjectTreeView* mView = nullptr;
};

} // namespace

TEST_F(ProjectBrowserTest, theContextMenuOffersWhatTheSelectionAllowsAndItsStateIsKept)
{
    open("a b c+d e");
    mView->expand(indexAt("2"));
    QAction* remove = mBrowser->actions().at(1);
    QAction* interleave = mBrowser->actions().at(0);
    EXPECT_EQ(remove->shortcut(), QKeySequence(Qt::Key_Delete));
    EXPECT_EQ(interleave->shortcut(), QKeySequence("Ctrl+I"));
    for (const auto& [selected, menus, canRemove, canInterleave] : {std::tuple("", 0, true, true),
                                                                    {"0", 1, true, false},
                                                                    {"0 1", 1, true, true},
                                                                    {"0 2.1", 1, true, false},
                                                                    {"bank 0 1", 1, false, false}}) {
        select(selected);
        Answer<QMenu> answer([&](QMenu* menu) {
            EXPECT_EQ(menu->actions(), QList<QAction*>({remove, interleave}));
            menu->close();
        });
        QContextMenuEvent event(QContextMenuEvent::Keyboard, QPoint(5, 5), mBrowser->mapToGlobal(QPoint(5, 5)));
        QCoreApplication::sendEvent(mBrowser.get(), &event);
        EXPECT_EQ(answer.count, menus) << selected;
        EXPECT_EQ(remove->isEnabled(), canRemove) << selected;
        EXPECT_EQ(interleave->isEnabled(), canInterleave) << selected;
    }

    // The last menu has disabled both actions, and their keys.
    select("0");
    QTest::keyClick(mView, Qt::Key_Delete);
    EXPECT_EQ(describe(mBank), "a b c+d e");
}

TEST_F(ProjectBrowserTest, keysRemoveAndInterleaveWhatIsSelected)
{
    open("a b c+d e");
    mView->expand(indexAt("2"));
    const auto press = [&](const QString& selected, const QKeySequence& keys) {
        select(selected);
        return loggedLines([&] { QTest::keySequence(mView, keys); }, Logger::OUTPUT_ERROR);
    };
    EXPECT_EQ(press("0 2.0", QKeySequence("Ctrl+I")), QStringList("ERROR: can only interleave single subsounds"));
    EXPECT_EQ(press("0", QKeySequence("Ctrl+I")), QStringList("ERROR: Not enough sounds selected."));
    EXPECT_EQ(press("", QKeySequence("Ctrl+I")), QStringList("ERROR: Not enough sounds selected."));
    EXPECT_EQ(describe(mBank), "a b c+d e");

    press("3 0", QKeySequence("Ctrl+I"));
    EXPECT_EQ(describe(mBank), "b c+d e+a") << "the first that was selected receives the others";
    EXPECT_TRUE(mView->isExpanded(indexAt("2")));
    EXPECT_TRUE(mView->isExpanded(indexAt("1")));

    QSignalSpy resets(mView->model(), SIGNAL(modelReset()));
    press("bank", QKeySequence::Delete);
    EXPECT_EQ(resets.size(), 1);
    EXPECT_EQ(describe(mBank), "b c+d e+a");
    press("bank 0 1.1", QKeySequence::Delete);
    EXPECT_EQ(describe(mBank), "c e+a");
}

TEST_F(ProjectBrowserTest, filesAreAddedUntilTheUserCancels)
{
    open("a");
    QSignalSpy resets(mView->model(), SIGNAL(modelReset()));
    mView->collapse(indexAt("bank"));
    mBrowser->addFiles({});
    EXPECT_TRUE(resets.isEmpty());
    EXPECT_TRUE(mView->isExpanded(indexAt("bank")));

    const QList<QUrl> mixed = {QUrl::fromLocalFile(makeSound("good.wav")),
                               QUrl::fromLocalFile(writeFile("bad.wav", "noise"))};
    EXPECT_EQ(loggedLines([&] { mBrowser->addFiles(mixed); }, Logger::OUTPUT_ERROR),
              QStringList("ERROR: invalid file: 'bad.wav'"));
    EXPECT_EQ(describe(mBank), "a good");
    EXPECT_EQ(resets.size(), 1);

    const QList<QUrl> many(200, mixed.first());
    int valueAtCancel = 0;
    Answer<QProgressDialog> cancel([&](QProgressDialog* dialog) {
        EXPECT_EQ(dialog->labelText(), "Analysing files");
        EXPECT_EQ(dialog->maximum(), 200);
        EXPECT_EQ(dialog->windowModality(), Qt::WindowModal);
        valueAtCancel = dialog->value();
        dialog->findChild<QPushButton*>()->click();
    });
    mBrowser->addFiles(many);
    EXPECT_EQ(cancel.count, 1);
    EXPECT_LT(valueAtCancel, 190);
    EXPECT_EQ(mBank->size(), 2 + valueAtCancel + 2) << "the current file is still added";
    EXPECT_EQ(mView->model()->rowCount(indexAt("bank")), mBank->size());

    mBank->unload();
    mBrowser->addFiles(mixed);
    EXPECT_TRUE(workspace()->isEmpty());
}

TEST_F(ProjectBrowserTest, theViewSurvivesResets)
{
    open(QString("a ").repeated(100) + "b+c d+e f+g");
    mView->expand(indexAt("100"));
    mView->expand(indexAt("102"));
    mView->doItemsLayout();
    mView->horizontalScrollBar()->setValue(37);
    mView->verticalScrollBar()->setValue(51);
    select("3 4");

    mBrowser->update();
    mBrowser->update();
    EXPECT_TRUE(mView->isExpanded(indexAt("bank")));
    EXPECT_TRUE(mView->isExpanded(indexAt("100")));
    EXPECT_FALSE(mView->isExpanded(indexAt("101")));
    EXPECT_TRUE(mView->isExpanded(indexAt("102")));
    QCoreApplication::processEvents();
    EXPECT_EQ(mView->horizontalScrollBar()->value(), 37);
    EXPECT_EQ(mView->verticalScrollBar()->value(), 51);
    EXPECT_TRUE(mView->selectionModel()->selectedIndexes().isEmpty());

    // A pending state takes precedence over the current one.
    mBrowser->saveViewState();
    mView->collapseAll();
    mBrowser->saveViewState();
    mBrowser->restoreViewState();
    EXPECT_TRUE(mView->isExpanded(indexAt("100")));
}

TEST_F(ProjectBrowserTest, aDragOfRowsIsAcceptedOnEveryRowAndBelowAllRows)
{
    open("a b+c d");
    mView->expand(indexAt("1"));
    mView->doItemsLayout();
    const auto data = row("0");
    const QPoint empty(20, mView->viewport()->height() - 5);
    EXPECT_TRUE(drag<QDragEnterEvent>(empty, data.get()));
    EXPECT_TRUE(drag<QDragMoveEvent>(empty, data.get()));
    EXPECT_LT(lineGeometry().bottom(), 0) << "no row was hovered yet";
    EXPECT_EQ(loggedLines([&] { drag<QDropEvent>(empty, data.get()); }), QStringList("drop ignored"));

    drag<QDragEnterEvent>(empty, data.get());
    for (const QString& position : QStringList({"bank", "0", "1", "1.0", "1.1", "2"})) {
        const QRect row = mView->visualRect(indexAt(position));
        EXPECT_TRUE(drag<QDragMoveEvent>(row.center(), data.get())) << position.toStdString();
        const int top = row.top() + mView->header()->height();
        EXPECT_EQ(lineGeometry(), QRect(QPoint(0, top), QPoint(mView->viewport()->width() - 1, top + 1)));
    }

    // Over empty space the line stays at the last row, and so does the target.
    drag<QDragMoveEvent>(empty, data.get());
    EXPECT_GT(lineGeometry().top(), 0);
    drag<QDropEvent>(empty, data.get());
    EXPECT_LT(lineGeometry().bottom(), 0);
    EXPECT_EQ(describe(mBank), "b+c a d");
    EXPECT_TRUE(mView->isExpanded(indexAt("0")));
    EXPECT_TRUE(mView->selectionModel()->selectedIndexes().isEmpty());

    // The drop reset the model, so the row that was hovered last is gone.
    const auto next = row("0");
    drag<QDragEnterEvent>(empty, next.get());
    EXPECT_EQ(loggedLines([&] { drag<QDropEvent>(empty, next.get()); }), QStringList("drop ignored"));

    // Rows of another process are addresses that are meaningless here.
    QMimeData foreign;
    foreign.setData(ProxyTreeModel::ROWS_MIME_TYPE, QByteArray(8, '\x55'));
    drag<QDragEnterEvent>(mView->visualRect(indexAt("0")).center(), &foreign);
    drag<QDragMoveEvent>(mView->visualRect(indexAt("0")).center(), &foreign);
    EXPECT_TRUE(loggedLines([&] { drag<QDropEvent>(empty, &foreign); }).first().contains("another window"));
    EXPECT_EQ(describe(mBank), "b+c a d");
}

TEST_F(ProjectBrowserTest, filesMayBeDroppedAnywhereAndTextAborts)
{
    open("a b");
    QMimeData files;
    files.setUrls({QUrl::fromLocalFile(makeSound("new.wav"))});
    const QPoint first = mView->visualRect(indexAt("0")).center();
    EXPECT_TRUE(drag<QDragEnterEvent>(first, &files));
    for (const QPoint& position : {first, QPoint(20, mView->viewport()->height() - 5)}) {
        EXPECT_TRUE(drag<QDragMoveEvent>(position, &files));
        EXPECT_LT(lineGeometry().bottom(), 0);
    }
    drag<QDropEvent>(first, &files);
    EXPECT_EQ(describe(mBank), "a b new");

    QMimeData text;
    text.setText("words");
    EXPECT_DEATH(drag<QDragEnterEvent>(first, &text), "false");
}
