// SPDX-License-Identifier: MIT
// The small widgets of the panels and dialogs.
#pragma once

#include <QCheckBox>
#include <QFrame>
#include <QLineEdit>
#include <QPixmap>
#include <QString>
#include <QWidget>

class QDoubleValidator;
class QLabel;
class QPushButton;
class QSlider;
class QTextEdit;

namespace TARNOK {

// A text for a message box, escaped: a tag in it, for instance in the name of a directory, would make it rich text.
QString asItStands(const QString& text);

// A number that is shown with a fixed count of decimals: further digits are dropped, not rounded, and a value that is
// too small is shown as the smallest step.
class NumericTextBox : public QFrame
{
    Q_OBJECT

public:
    // The validator determines the count of decimals. An empty label means no label and no frame.
    NumericTextBox(QString label, QDoubleValidator* validator, QWidget* parent);

    void setValue(float value);

    // The number in the text, 0 if it isn't a number.
    float getValue();

    QLineEdit* lineEdit() const { return mLineEdit; }

signals:
    void valueChanged(); // by typing only
    void editingFinished();

private:
    QLabel* mLabel = nullptr;
    QLineEdit* mLineEdit;
    int mDecimals;
};

// A slider over a range of real numbers, with the range's ends beside it and a box to type into.
//
// All arithmetic is in single precision, and a value is truncated to its position: the value of that position may be
// slightly smaller.
class EnhancedSlider : public QWidget
{
    Q_OBJECT

public:
    // value must lie from minimum to maximum, else the process aborts. The slider has resolution + 1 positions.
    EnhancedSlider(float minimum, float maximum, float value, int resolution, int decimals);

    // From 0 to maximum in as many steps, at the maximum, without labels at the ends.
    explicit EnhancedSlider(int maximum = 100, int decimals = 2);

    // Aborts for a value outside the range. valueChanged reports the value of the slider's position, and only if that
    // changed; the box then shows the plain value.
    void setValue(float value);

    // What the box shows, with its dropped digits.
    float getValue() const;

    float getValueFromSlider() const;
    void setSliderValue(float value); // unclamped

    // Abort if the current value lies outside the new range. The labels stay.
    void setMaximum(float value);
    void setMinimum(float value);

    // A red line at value; none at the range's lower end.
    void setMarkerValue(float value);

    // The names of the slider and the box for assistive technology.
    void setControlName(const QString& name);

signals:
    void valueChanged(float value);

public slots:
    void slotUpdateTextFromSlider();
    void slotUpdateSliderFromText();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void initInternal(int resolution, int decimals);
    void init(float minimum, float maximum, float value);
    float fractionOf(float value) const;
    int positionOf(float value) const;

    int mResolution = 0;
    float mMarkerValue = -1.0f; // fraction of the range
    float mMinValue;
    float mMaxValue;
    bool mSyncEnabled = true; // cleared while one half writes to the other
    QLabel* mMinLabel = nullptr;
    QLabel* mMaxLabel = nullptr;
    NumericTextBox* mTextBox = nullptr;
    QSlider* mSlider = nullptr;
};

// A check box for a choice that doesn't always exist: disabling unchecks it, and enabling restores its state.
class ConditionalCheckBox : public QCheckBox
{
public:
    ConditionalCheckBox(const QString& text, QWidget* parent);

    // Hides QWidget::setEnabled and must be called through this type. The check state changes before the enabled state.
    void setEnabled(bool enable);

private:
    bool mSavedChecked = false;
};

// A directory, shown in full while it is edited and elided in the middle otherwise.
class DirectoryLineEdit : public QLineEdit
{
    Q_OBJECT

public:
    explicit DirectoryLineEdit(QWidget* parent);

    // Accepts an existing directory. A missing one is refused or, if only its last part is missing, created after the
    // user has agreed. False if the path didn't change.
    bool setPath(const QString& path, bool createIfMissing);

    void setPathInternal(const QString& path);

    // Shows as much of the path as fits. The text of an edit that has the focus doesn't change: it belongs to the user.
    void elideText();

    // If such an edit has the focus, ends the editing as if it lost the focus, for commands that don't move the focus.
    // A refused path is replaced by the current one.
    static void finishEditing();

    // The full path, whatever the text is.
    const QString& path() const { return mPath; }

signals:
    void pathChanged(const QString& path);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    bool createDirectory(const QString& path);

    QString mPath;
};

// A directory with a button to browse for it.
class EnhancedDirectoryLineEdit : public QWidget
{
    Q_OBJECT

public:
    explicit EnhancedDirectoryLineEdit(QWidget* parent);

    DirectoryLineEdit* lineEdit() const { return mLineEdit; }

    // The names of the edit and the button for assistive technology.
    void setControlName(const QString& name);

signals:
    void pathChanged(const QString& path);

public slots:
    void browseForPath();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    QPushButton* mBrowseButton;
    DirectoryLineEdit* mLineEdit;
};

// A picture, centred in its area.
class PixmapWidget : public QWidget
{
public:
    PixmapWidget(const QPixmap& pixmap, QWidget* parent);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QPixmap mPixmap;
};

// A search line with a button that clears it.
class SearchField : public QFrame
{
    Q_OBJECT

public:
    explicit SearchField(QWidget* parent);

    void setText(const QString& text);
    QString getText() const;
    void clear();

signals:
    void textChanged(const QString& text);

public slots:
    void makeActive(const QString& text);

protected:
    bool eventFilter(QObject* object, QEvent* event) override;

private:
    bool mActive = false; // there is a text
    QLineEdit* mLineEdit;
    PixmapWidget* mSearchIcon;
    PixmapWidget* mCloseIcon;
};

// The pane that shows the log, from its construction to its end.
class NotificationArea : public QWidget
{
public:
    explicit NotificationArea(QWidget* parent);
    ~NotificationArea() override;

private:
    QTextEdit* mTextEdit;
};

} // namespace TARNOK
