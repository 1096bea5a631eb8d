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

// A text for a message box, which takes one with a tag in it, as a directory's name may have, for rich text.
QString asItStands(const QString& text);

// A number that is shown with a fixed count of decimals: digits behind them are dropped, not rounded, and a value too
// small to show is shown as the smallest step.
class NumericTextBox : public QFrame
{
    Q_OBJECT

public:
    // The validator gives the count of decimals. An empty label means none, and no frame.
    NumericTextBox(QString label, QDoubleValidator* validator, QWidget* parent);

    void setValue(float value);

    // The number in the text, 0 if it is none.
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
// All arithmetic is in single precision, and a position is cut from its value, not rounded: a value may come back from
// its position as a slightly smaller one.
class EnhancedSlider : public QWidget
{
    Q_OBJECT

public:
    // value must lie from minimum to maximum, else the process aborts. The slider has resolution + 1 positions.
    EnhancedSlider(float minimum, float maximum, float value, int resolution, int decimals);

    // From 0 to maximum in as many steps, at the maximum, without labels at the ends.
    explicit EnhancedSlider(int maximum = 100, int decimals = 2);

    // Aborts for a value outside the range. valueChanged tells the value of the slider's position, and only if that
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

    // What assistive technology calls the slider and the box.
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

// A check box for a choice that doesn't always exist: while it is disabled it is unchecked, and enabled again it
// returns to what it was.
class ConditionalCheckBox : public QCheckBox
{
public:
    ConditionalCheckBox(const QString& text, QWidget* parent);

    // Hides QWidget's and must be called through this type. The check state changes before the enabled state.
    void setEnabled(bool enable);

private:
    bool mSavedChecked = false;
};

// A directory, shown whole while it is edited and with its middle left out otherwise.
class DirectoryLineEdit : public QLineEdit
{
    Q_OBJECT

public:
    explicit DirectoryLineEdit(QWidget* parent);

    // Takes a directory that exists. One that doesn't is refused or, if only its last part is missing, created once
    // the user has agreed. False if nothing came of it.
    bool setPath(const QString& path, bool createIfMissing);

    void setPathInternal(const QString& path);

    // Shows the path as far as there is room. The text of an edit that has the focus stays: it is the user's.
    void elideText();

    // Ends what the user does where the focus is in such an edit as if it left, for commands that leave the focus where
    // it is. A path that is refused gives way to the one that holds.
    static void finishEditing();

    // The whole path, whatever the text is.
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

    // What assistive technology calls the edit and the button.
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

// A picture in the middle of its area.
class PixmapWidget : public QWidget
{
public:
    PixmapWidget(const QPixmap& pixmap, QWidget* parent);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QPixmap mPixmap;
};

// A line to search with, and a cross that clears it.
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
