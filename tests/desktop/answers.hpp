// SPDX-License-Identifier: MIT
// Answers dialogs and menus that block, from the event loop as a user does.
#pragma once

#include <gtest/gtest.h>

#include <QtTest>
#include <QtWidgets>

#include <functional>

// Runs the event loop until condition holds.
#define ASSERT_SOON(condition) ASSERT_TRUE(QTest::qWaitFor([&] { return (condition); }, 60000)) << #condition

namespace tests {

// The first child of class Type whose property, which may be inherited, has this value.
template <typename Child, typename Owner>
Child* childWith(const QObject* parent, QString (Owner::*property)() const, const QString& value)
{
    for (Child* child : parent->findChildren<Child*>()) {
        if ((child->*property)() == value)
            return child;
    }
    ADD_FAILURE() << value.toStdString();
    return nullptr;
}

// During its lifetime, passes every dialog or menu of its kind that opens to a function, and counts them.
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

    int count = 0;

private:
    void look()
    {
        QWidget* open = QApplication::activePopupWidget();
        auto* widget = qobject_cast<Widget*>(open ? open : QApplication::activeModalWidget());
        if (!widget || !widget->isVisible() || widget == mLast)
            return;
        mLast = widget;
        ++count;
        mAnswer(widget);
    }

    std::function<void(Widget*)> mAnswer;
    QPointer<QWidget> mLast;
    QTimer mTimer;
};

// Presses a button of every message box, and stores the last text.
struct MessageAnswer : Answer<QMessageBox>
{
    explicit MessageAnswer(QMessageBox::StandardButton button)
        : Answer([this, button](QMessageBox* box) {
            title = box->windowTitle();
            text = box->text();
            QAbstractButton* answer = box->button(button);
            ASSERT_TRUE(answer) << text.toStdString();
            answer->click();
        })
    { }

    QString title;
    QString text;
};

// Types a path into every file dialog and accepts; an empty path cancels.
struct FileAnswer : Answer<QFileDialog>
{
    explicit FileAnswer(const QString& path)
        : Answer([this, path](QFileDialog* dialog) {
            directory = dialog->directory().path();
            filters = dialog->nameFilters();
            mode = dialog->acceptMode();
            if (path.isEmpty())
                return dialog->reject();
            // The initial selection in the list would take precedence over the text.
            dialog->findChild<QAbstractItemView*>("listView")->clearSelection();
            dialog->findChild<QLineEdit*>("fileNameEdit")->setText(path);
            QMetaObject::invokeMethod(dialog, "accept");
        })
    { }

    QString directory;
    QStringList filters;
    QFileDialog::AcceptMode mode = QFileDialog::AcceptOpen;
};

} // namespace tests
