// Answers to dialogs and menus that block, given from the event loop as a person gives them.
#pragma once

#include <gtest/gtest.h>

#include <QAbstractItemView>
#include <QApplication>
#include <QFileDialog>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <functional>

// Turns the event loop until condition holds.
#define ASSERT_SOON(condition) ASSERT_TRUE(QTest::qWaitFor([&] { return (condition); }, 60000)) << #condition

namespace tests {

// Hands every dialog or menu of its kind that opens, while it lives, to a function, and counts them.
template <typename Widget>
class Answer
{
public:
    explicit Answer(std::function<void(Widget*)> answer)
        : mAnswer(std::move(answer))
    {
        QObject::connect(&mTimer, &QTimer::timeout, &mTimer, [this] { look(); });
        mTimer.start(2);
    }

    int count() const { return mCount; }

private:
    void look()
    {
        QWidget* open = QApplication::activePopupWidget();
        if (!open)
            open = QApplication::activeModalWidget();
        auto* widget = qobject_cast<Widget*>(open);
        if (!widget || !widget->isVisible() || widget == mLast)
            return;
        mLast = widget;
        ++mCount;
        mAnswer(widget);
    }

    std::function<void(Widget*)> mAnswer;
    QPointer<QWidget> mLast;
    int mCount = 0;
    QTimer mTimer;
};

// Presses a button of every message box, and keeps the last text.
class MessageAnswer : public Answer<QMessageBox>
{
public:
    explicit MessageAnswer(QMessageBox::StandardButton button)
        : Answer([this, button](QMessageBox* box) {
            mTitle = box->windowTitle();
            mText = box->text();
            QAbstractButton* answer = box->button(button);
            ASSERT_TRUE(answer) << mText.toStdString();
            answer->click();
        })
    { }

    const QString& title() const { return mTitle; }
    const QString& text() const { return mText; }

private:
    QString mTitle;
    QString mText;
};

// Types a path into every file dialog and accepts; an empty path cancels.
class FileAnswer : public Answer<QFileDialog>
{
public:
    explicit FileAnswer(const QString& path)
        : Answer([this, path](QFileDialog* dialog) {
            mDirectory = dialog->directory().path();
            mFilters = dialog->nameFilters();
            mMode = dialog->acceptMode();
            if (path.isEmpty()) {
                dialog->reject();
                return;
            }
            // What is selected in the list from the start would win over the text.
            dialog->findChild<QAbstractItemView*>("listView")->clearSelection();
            dialog->findChild<QLineEdit*>("fileNameEdit")->setText(path);
            QMetaObject::invokeMethod(dialog, "accept");
        })
    { }

    const QString& directory() const { return mDirectory; }
    const QStringList& filters() const { return mFilters; }
    QFileDialog::AcceptMode mode() const { return mMode; }

private:
    QString mDirectory;
    QStringList mFilters;
    QFileDialog::AcceptMode mMode = QFileDialog::AcceptOpen;
};

} // namespace tests
