// SPDX-License-Identifier: MIT
// The panel with the project's tree.
#pragma once

#include "abstract_item.hpp"

#include <QList>
#include <QPersistentModelIndex>
#include <QSet>
#include <QTreeView>
#include <QUrl>
#include <QWidget>

class QAction;

namespace TARNOK {

class ProxyTreeModel;
class Subsound;
class WorkspaceModel;

// The view of the project tree. Accepts drags of its own rows and of files, draws a line where rows will be inserted,
// and turns a drop into one of two signals.
class ProjectTreeView : public QTreeView
{
    Q_OBJECT

public:
    explicit ProjectTreeView(QWidget* parent = nullptr);

    // A line across the view, its upper edge at y.
    void showDropIndicator(int y);
    void hideDropIndicator();

signals:
    void filesDropped(const QList<QUrl>& urls);
    void itemsDropped(AbstractItem* target, QList<AbstractItem*> items); // target is null if no row was hovered

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    bool viewportEvent(QEvent* event) override;

private:
    void hoverRow(const QPoint& position);

    QWidget* mDropIndicator;

    // The row that a drag of rows hovered last. The end of a build may reset the model during a drag and delete its
    // rows: a plain index would then point to freed memory.
    QPersistentModelIndex mDropIndex;
};

// The panel with the tree, its context menu and its actions. Adds files to the first bank, and keeps expansion and
// scroll position across resets of the model.
class ProjectBrowser : public QWidget
{
    Q_OBJECT

public:
    // parent isn't used: the main window adds the panel to its layout.
    explicit ProjectBrowser(QWidget* parent);

    // Rereads the whole tree.
    void update();

    void expandItem(AbstractItem* item);

public slots:
    void removeItems();
    void interleaveSubsounds();
    void addFiles(const QList<QUrl>& urls);
    void saveViewState();
    void restoreViewState();

protected:
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    void arrangeView();
    void createActions();
    void connectModel();
    AbstractItem* itemOf(const QModelIndex& index) const;
    void saveItemExpansionState(AbstractItem* item, int row);
    void restoreItemExpansionState(AbstractItem* item, int row, const QSet<AbstractItem*>& expanded);

    QAction* mRemoveAction;
    QAction* mInterleaveAction;
    ProjectTreeView* mTreeView;

    // Both exist until the process ends: the destructor of the tree view refers to them.
    WorkspaceModel* mModel;
    ProxyTreeModel* mProxy;

    struct
    {
        int horizontalPosition = 0;
        int verticalPosition = 0;
        QList<AbstractItem*> expandedItems; // for comparison only: the items may have been deleted
    } mViewState;
};

} // namespace TARNOK
