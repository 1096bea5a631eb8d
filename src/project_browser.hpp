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

// The tree. Takes in drags of its own rows and of files, draws the line where rows will land, and turns a drop into one
// of two signals.
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

    // The row hovered last by a drag of rows. A reset of the model, which a build that ends may cause in the middle of
    // a drag, takes its rows away: a plain index would then point to freed memory.
    QPersistentModelIndex mDropIndex;
};

// The tree with its context menu and actions. Adds files to the first bank, and keeps what is expanded and scrolled to
// across the resets of the model.
class ProjectBrowser : public QWidget
{
    Q_OBJECT

public:
    // The main window puts the panel in its place; parent isn't used.
    explicit ProjectBrowser(QWidget* parent);

    // Reads the whole tree anew.
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

    // Both live until the process ends: the tree view refers to them in its own destruction.
    WorkspaceModel* mModel;
    ProxyTreeModel* mProxy;

    struct
    {
        int horizontalPosition = 0;
        int verticalPosition = 0;
        QList<AbstractItem*> expandedItems; // compared only; what they point to may be gone
    } mViewState;
};

} // namespace TARNOK
