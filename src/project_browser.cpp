// SPDX-License-Identifier: MIT
#include "project_browser.hpp"

#include "logger.hpp"
#include "sound_bank.hpp"
#include "utility_classes.hpp"
#include "workspace.hpp"
#include "workspace_model.hpp"

#include <QAction>
#include <QContextMenuEvent>
#include <QDataStream>
#include <QDropEvent>
#include <QHeaderView>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QProgressDialog>
#include <QScrollBar>
#include <QSet>
#include <QStyledItemDelegate>
#include <QVBoxLayout>

namespace TARNOK {

namespace {

constexpr int AUTO_EXPAND_MS = 350;
constexpr int MINIMUM_WIDTH = 300;
constexpr int PARKED_Y = -100;

// The shape of an icon in one colour.
QIcon silhouette(const QIcon& icon, const QSize& size, qreal pixelRatio, const QColor& colour)
{
    QPixmap pixmap = icon.pixmap(size, pixelRatio);
    QPainter painter(&pixmap);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(pixmap.rect(), colour);
    painter.end();

    // Added for Normal and for Selected: a style tints an icon that has no picture for the mode.
    QIcon result(pixmap);
    result.addPixmap(pixmap, QIcon::Selected);
    return result;
}

// The addresses of all items of the tree.
QSet<const AbstractItem*> itemsOfTree()
{
    QSet<const AbstractItem*> items;
    for (const SoundBank* bank : *workspace()) {
        items.insert(bank);
        for (const Subsound* subsound : *bank) {
            items.insert(subsound);
            items.unite({subsound->cbegin(), subsound->cend()});
        }
    }
    return items;
}

// Centres texts vertically: the model aligns them only horizontally, so a view would draw them at the top of the row.
// Draws the icons of selected rows in the colour of selected text: their own colours are too close to the selection's.
class RowDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override
    {
        QStyledItemDelegate::initStyleOption(option, index);
        option->displayAlignment |= Qt::AlignVCenter;
        if ((option->state & QStyle::State_Selected) && !option->icon.isNull())
            option->icon = silhouette(option->icon, option->decorationSize, option->widget->devicePixelRatio(),
                                      option->palette.color(QPalette::HighlightedText));
    }
};

} // namespace

ProjectTreeView::ProjectTreeView(QWidget* parent)
    : QTreeView(parent)
    , mDropIndicator(new QWidget(this))
{
    setItemDelegate(new RowDelegate(this));

    hideDropIndicator();
    mDropIndicator->setAutoFillBackground(true);
    QPalette palette = mDropIndicator->palette();
    palette.setBrush(mDropIndicator->backgroundRole(), QBrush(Qt::gray));
    mDropIndicator->setPalette(palette);

    // A drag over the line must reach the row below it.
    mDropIndicator->setAttribute(Qt::WA_TransparentForMouseEvents);
}

void ProjectTreeView::showDropIndicator(int y)
{
    mDropIndicator->setGeometry(QRect(QPoint(0, y), QPoint(viewport()->width() - 1, y + 1)));
}

void ProjectTreeView::hideDropIndicator()
{
    mDropIndicator->setGeometry(QRect(QPoint(0, PARKED_Y), QPoint(0, PARKED_Y)));
}

void ProjectTreeView::dragEnterEvent(QDragEnterEvent* event)
{
    if (event->mimeData()->hasUrls() || event->mimeData()->hasFormat(ProxyTreeModel::ROWS_MIME_TYPE))
        event->acceptProposedAction();
    else
        Q_ASSERT(false);
}

void ProjectTreeView::dragMoveEvent(QDragMoveEvent* event)
{
    // The base class scrolls at the edges and expands rows. It also refuses to drop a row onto itself, and data that
    // the model can't handle. All of these are accepted here: the receiver of the drop decides what may be dropped
    // where.
    QTreeView::dragMoveEvent(event);
    event->acceptProposedAction();
}

bool ProjectTreeView::viewportEvent(QEvent* event)
{
    switch (event->type()) {
    case QEvent::DragLeave:
    case QEvent::Drop:
        hideDropIndicator();
        break;
    case QEvent::DragMove: {
        const auto* move = static_cast<const QDragMoveEvent*>(event);
        if (move->mimeData()->hasFormat(ProxyTreeModel::ROWS_MIME_TYPE))
            hoverRow(move->position().toPoint());
        break;
    }
    default:
        break;
    }
    return QTreeView::viewportEvent(event);
}

void ProjectTreeView::hoverRow(const QPoint& position)
{
    const QModelIndex index = indexAt(position);
    if (!index.isValid())
        return;
    const int headerHeight = isHeaderHidden() ? 0 : header()->geometry().height();
    showDropIndicator(visualRect(index).top() + headerHeight);
    mDropIndex = index;
}

void ProjectTreeView::dropEvent(QDropEvent* event)
{
    const QMimeData* payload = event->mimeData();
    if (payload->hasUrls()) {
        emit filesDropped(payload->urls());
        return;
    }

    Q_ASSERT(payload->hasFormat(ProxyTreeModel::ROWS_MIME_TYPE));
    const QByteArray rows = payload->data(ProxyTreeModel::ROWS_MIME_TYPE);
    QDataStream stream(rows);
    QList<AbstractItem*> items;
    const QSet<const AbstractItem*> own = itemsOfTree();
    while (!stream.atEnd()) {
        AbstractItem* item = nullptr;
        stream.readRawData(reinterpret_cast<char*>(&item), sizeof item); // NOLINT(bugprone-sizeof-expression)
        if (own.contains(item)) {
            items.append(item);
            continue;
        }
        // An address in another process, in which the user has a second project open.
        logger()->println(Logger::OUTPUT_ERROR,
                          "ERROR: Sounds can't be dragged here from another window, add their files instead");
        return;
    }

    const auto* proxy = static_cast<const ProxyTreeModel*>(model());
    emit itemsDropped(static_cast<AbstractItem*>(proxy->mapToSource(mDropIndex).internalPointer()), items);
}

ProjectBrowser::ProjectBrowser(QWidget*)
    : mTreeView(new ProjectTreeView)
    , mModel(new WorkspaceModel(nullptr))
    , mProxy(new ProxyTreeModel)
{
    mProxy->setSourceModel(mModel);
    mProxy->setFilterCaseSensitivity(Qt::CaseInsensitive);
    mTreeView->setModel(mProxy);
    arrangeView();
    createActions();
    connectModel();
    setMinimumWidth(MINIMUM_WIDTH);
}

void ProjectBrowser::arrangeView()
{
    mTreeView->setSortingEnabled(false);
    mTreeView->setHeaderHidden(false);
    mTreeView->setUniformRowHeights(true);
    mTreeView->setAutoExpandDelay(AUTO_EXPAND_MS);
    mTreeView->setSelectionMode(QAbstractItemView::ExtendedSelection);
    mTreeView->setDragDropMode(QAbstractItemView::InternalMove);
    mTreeView->setDropIndicatorShown(false);
    mTreeView->setAcceptDrops(true);
    mTreeView->setAccessibleName("Project");

    auto* layout = new QVBoxLayout;
    layout->addWidget(mTreeView);
    setLayout(layout);
}

void ProjectBrowser::createActions()
{
    mInterleaveAction = new QAction(tr("&Interleave"), this);
    mInterleaveAction->setShortcut(tr("Ctrl+I"));
    mInterleaveAction->setStatusTip(tr("Merge into an interleaved subsound"));
    bool connected = connect(mInterleaveAction, SIGNAL(triggered()), this, SLOT(interleaveSubsounds()));
    Q_ASSERT(connected);
    addAction(mInterleaveAction);

    mRemoveAction = new QAction(tr("&Remove"), this);
    mRemoveAction->setShortcut(Qt::Key_Delete);
    mRemoveAction->setStatusTip(tr("Remove item from project"));
    connected = connect(mRemoveAction, SIGNAL(triggered()), this, SLOT(removeItems()));
    Q_ASSERT(connected);
    addAction(mRemoveAction);
}

void ProjectBrowser::connectModel()
{
    bool connected = connect(mModel, SIGNAL(modelAboutToBeReset()), this, SLOT(saveViewState()));
    Q_ASSERT(connected);
    connected = connect(mModel, SIGNAL(modelReset()), this, SLOT(restoreViewState()));
    Q_ASSERT(connected);
    connected = connect(mTreeView, SIGNAL(filesDropped(QList<QUrl>)), this, SLOT(addFiles(QList<QUrl>)));
    Q_ASSERT(connected);
    connected = connect(mTreeView, SIGNAL(itemsDropped(AbstractItem*, QList<AbstractItem*>)), mModel,
                        SLOT(moveItems(AbstractItem*, QList<AbstractItem*>)));
    Q_ASSERT(connected);
}

void ProjectBrowser::update()
{
    mModel->pulseReset();
}

void ProjectBrowser::expandItem(AbstractItem* item)
{
    mTreeView->expand(mProxy->mapFromSource(mModel->indexForItem(item)));
}

AbstractItem* ProjectBrowser::itemOf(const QModelIndex& index) const
{
    return static_cast<AbstractItem*>(mProxy->mapToSource(index).internalPointer());
}

void ProjectBrowser::contextMenuEvent(QContextMenuEvent* event)
{
    const QModelIndexList selected = mTreeView->selectionModel()->selectedIndexes();
    if (selected.isEmpty())
        return;

    bool canRemove = true;
    bool canInterleave = true;
    for (const QModelIndex& index : selected) {
        switch (itemOf(index)->type()) {
        case RTTI_SOURCEFILE:
            canInterleave = false;
            break;
        case RTTI_SUBSOUND:
            break;
        case RTTI_SOUNDBANK:
        case RTTI_WORKSPACE:
            canRemove = false;
            canInterleave = false;
            break;
        default:
            Q_ASSERT(false);
        }
    }

    // The view selects whole rows, and each row has one index per column.
    const qsizetype rows = selected.size() / COLUMN_COUNT;

    QMenu menu(this);
    menu.addAction(mRemoveAction);
    menu.addAction(mInterleaveAction);
    mRemoveAction->setEnabled(canRemove);
    mInterleaveAction->setEnabled(canInterleave && rows >= 2);
    menu.exec(event->globalPos());
}

void ProjectBrowser::removeItems()
{
    QList<AbstractItem*> items;
    QSet<AbstractItem*> seen;
    for (const QModelIndex& index : mTreeView->selectionModel()->selectedIndexes()) {
        AbstractItem* item = itemOf(index);
        if (!item || seen.contains(item) || item->type() == RTTI_SOUNDBANK)
            continue;
        seen.insert(item);
        items.append(item);
    }
    mModel->removeItems(items);
}

void ProjectBrowser::interleaveSubsounds()
{
    QList<Subsound*> subsounds;
    QSet<AbstractItem*> seen;
    for (const QModelIndex& index : mTreeView->selectionModel()->selectedIndexes()) {
        AbstractItem* item = itemOf(index);
        if (!item)
            continue;
        if (item->type() != RTTI_SUBSOUND) {
            logger()->println(Logger::OUTPUT_ERROR, "ERROR: can only interleave single subsounds");
            return;
        }
        if (seen.contains(item))
            continue;
        seen.insert(item);
        subsounds.append(static_cast<Subsound*>(item));
    }
    if (subsounds.size() < 2) {
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: Not enough sounds selected.");
        return;
    }

    Subsound* interleaved = mModel->interleaveSubsounds(subsounds);
    Q_ASSERT(interleaved);
    expandItem(interleaved);
    mModel->pulseReset();
}

void ProjectBrowser::addFiles(const QList<QUrl>& urls)
{
    if (workspace()->isEmpty())
        return;
    SoundBank* bank = workspace()->first();

    // Shown from the start, because only a visible dialog processes events, such as a cancel, after every file.
    QProgressDialog progress("Analysing files", "&Cancel", 0, static_cast<int>(urls.size()), this);
    progress.setWindowTitle(APP_NAME);
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(0);
    progress.show();

    bool added = false;
    for (const QUrl& url : urls) {
        added |= bank->addSubsound(url.toLocalFile()) != nullptr;
        if (progress.wasCanceled())
            break;
        progress.setValue(progress.value() + 1);
    }

    expandItem(bank);
    if (added)
        mModel->pulseReset();
}

void ProjectBrowser::saveViewState()
{
    mViewState.horizontalPosition = mTreeView->horizontalScrollBar()->value();
    mViewState.verticalPosition = mTreeView->verticalScrollBar()->value();

    // A state that is waiting to be restored takes precedence.
    if (!mViewState.expandedItems.isEmpty())
        return;
    for (int row = 0; row < workspace()->size(); ++row)
        saveItemExpansionState(workspace()->at(row), row);
}

void ProjectBrowser::saveItemExpansionState(AbstractItem* item, int row)
{
    Q_ASSERT(item);
    if (mTreeView->isExpanded(mProxy->mapFromSource(mModel->indexForItem(item, row))))
        mViewState.expandedItems.append(item);
    for (int i = 0; i < item->childCount(); ++i)
        saveItemExpansionState(item->child(i), i);
}

void ProjectBrowser::restoreViewState()
{
    if (!mViewState.expandedItems.isEmpty()) {
        const QSet<AbstractItem*> expanded(mViewState.expandedItems.cbegin(), mViewState.expandedItems.cend());
        for (int row = 0; row < workspace()->size(); ++row)
            restoreItemExpansionState(workspace()->at(row), row, expanded);
    }
    mViewState.expandedItems.clear();
    mTreeView->horizontalScrollBar()->setSliderPosition(mViewState.horizontalPosition);
    mTreeView->verticalScrollBar()->setSliderPosition(mViewState.verticalPosition);
}

void ProjectBrowser::restoreItemExpansionState(AbstractItem* item, int row, const QSet<AbstractItem*>& expanded)
{
    if (expanded.contains(item))
        mTreeView->expand(mProxy->mapFromSource(mModel->indexForItem(item, row)));
    for (int i = 0; i < item->childCount(); ++i)
        restoreItemExpansionState(item->child(i), i, expanded);
}

} // namespace TARNOK
