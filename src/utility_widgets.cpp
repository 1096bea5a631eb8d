// SPDX-License-Identifier: MIT
#include "utility_widgets.hpp"

#include "logger.hpp"

#include <QApplication>
#include <QCompleter>
#include <QDir>
#include <QDoubleValidator>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QFontMetrics>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QSlider>
#include <QTextDocument>
#include <QTextEdit>
#include <QTextOption>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <limits>

namespace TARNOK {

namespace {

// The distance of a slider's groove from the ends of its widget in pixels: both ends together, and one end.
constexpr int GROOVE_MARGINS = 12;
constexpr int GROOVE_MARGIN = 6;

constexpr int MARKER_TOP = 3;
constexpr int MARKER_BOTTOM = 20;

constexpr int ICON_WIDTH = 20;
constexpr int BROWSE_BUTTON_WIDTH = 22;

// A list that waits for its sounds logs without end, so the oldest lines are dropped.
constexpr int MOST_LINES = 100000;

// At most six significant digits.
QString formatNumber(float value)
{
    return QString("%0").arg(static_cast<double>(value), 0, 'g', -1, ' ');
}

} // namespace

QString asItStands(const QString& text)
{
    return Qt::mightBeRichText(text) ? Qt::convertFromPlainText(text, Qt::WhiteSpaceNormal) : text;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is given
NumericTextBox::NumericTextBox(QString label, QDoubleValidator* validator, QWidget* parent)
    : QFrame(parent)
    , mLineEdit(new QLineEdit)
    , mDecimals(validator->decimals())
{
    auto* layout = new QHBoxLayout;
    if (label.isEmpty()) {
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(0);
    } else {
        mLabel = new QLabel(label);
        mLabel->setBuddy(mLineEdit);
        layout->addWidget(mLabel, 0, Qt::AlignLeft);
        layout->setContentsMargins(4, 1, 1, 1);
        layout->setSpacing(2);
        setStyleSheet("NumericTextBox {border: 1px solid gray;border-radius: 2px; }");
    }
    mLineEdit->setValidator(validator);
    layout->addWidget(mLineEdit, 1, Qt::AlignLeft);
    setLayout(layout);

    bool connected = connect(mLineEdit, SIGNAL(textEdited(QString)), this, SIGNAL(valueChanged()));
    Q_ASSERT(connected);
    connected = connect(mLineEdit, SIGNAL(editingFinished()), this, SIGNAL(editingFinished()));
    Q_ASSERT(connected);
}

void NumericTextBox::setValue(float value)
{
    float step = 1.0f;
    for (int i = 0; i < mDecimals; ++i)
        step *= 0.1f;

    QString text = formatNumber(step);
    if (std::abs(value) >= step) {
        text = formatNumber(value);
        const auto dot = text.lastIndexOf('.');
        if (dot >= 0)
            text.truncate(mDecimals == 0 ? dot : dot + 1 + mDecimals);
    }
    mLineEdit->setText(text);
}

float NumericTextBox::getValue()
{
    bool ok = false;
    const float value = mLineEdit->text().toFloat(&ok);
    return ok ? value : 0.0f;
}

EnhancedSlider::EnhancedSlider(float minimum, float maximum, float value, int resolution, int decimals)
    : mMinValue(-std::numeric_limits<float>::infinity())
    , mMaxValue(std::numeric_limits<float>::infinity())
{
    initInternal(resolution, decimals);
    init(minimum, maximum, value);
}

EnhancedSlider::EnhancedSlider(int maximum, int decimals)
    : mMinValue(-std::numeric_limits<float>::infinity())
    , mMaxValue(std::numeric_limits<float>::infinity())
{
    initInternal(maximum, decimals);
    mMinValue = 0;
    mMaxValue = static_cast<float>(maximum);
    setValue(mMaxValue);
}

void EnhancedSlider::initInternal(int resolution, int decimals)
{
    auto* layout = new QHBoxLayout;
    auto* validator = new QDoubleValidator(this);
    mResolution = resolution;

    mSlider = new QSlider(Qt::Horizontal);
    mSlider->setMinimum(0);
    mSlider->setMaximum(resolution);
    mSlider->setSizeIncrement(5, 0);
    setFocusProxy(mSlider);

    mMinLabel = new QLabel;
    mMaxLabel = new QLabel;

    // The range isn't known yet, so that the validator has none: typed values are clamped when they are used. Numbers
    // are read with a decimal point, so that one with a comma must not pass.
    validator->setRange(static_cast<double>(mMinValue), static_cast<double>(mMaxValue), decimals);
    validator->setLocale(QLocale::c());
    mTextBox = new NumericTextBox(QString(), validator, nullptr);

    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(mMinLabel);
    layout->addSpacing(4);
    layout->addWidget(mSlider, 3);
    layout->addSpacing(4);
    layout->addWidget(mMaxLabel);
    layout->addSpacing(6);
    layout->addWidget(mTextBox, 1);
    setLayout(layout);

    bool connected = connect(mSlider, SIGNAL(valueChanged(int)), this, SLOT(slotUpdateTextFromSlider()));
    Q_ASSERT(connected);
    connected = connect(mTextBox, SIGNAL(valueChanged()), this, SLOT(slotUpdateSliderFromText()));
    Q_ASSERT(connected);
}

void EnhancedSlider::init(float minimum, float maximum, float value)
{
    mMinValue = minimum;
    mMaxValue = maximum;
    setValue(value);
    mMinLabel->setText(formatNumber(mMinValue));
    mMaxLabel->setText(formatNumber(mMaxValue));

    QLineEdit* lineEdit = mTextBox->lineEdit();
    const int decimals = static_cast<const QDoubleValidator*>(lineEdit->validator())->decimals();
    const QString widest = QString("%0").arg(static_cast<double>(mMaxValue), 0, 'f', decimals, '0');
    lineEdit->setFixedWidth(lineEdit->fontMetrics().horizontalAdvance(widest) + 6);
}

float EnhancedSlider::fractionOf(float value) const
{
    return (value - mMinValue) / (mMaxValue - mMinValue);
}

int EnhancedSlider::positionOf(float value) const
{
    return static_cast<int>(fractionOf(value) * static_cast<float>(mResolution));
}

void EnhancedSlider::setValue(float value)
{
    Q_ASSERT(mMinValue <= value && value <= mMaxValue);
    const float clamped = std::clamp(value, mMinValue, mMaxValue);
    mSlider->setValue(positionOf(clamped));
    mTextBox->setValue(clamped);
}

float EnhancedSlider::getValue() const
{
    return mTextBox->getValue();
}

float EnhancedSlider::getValueFromSlider() const
{
    const float position = static_cast<float>(mSlider->value());
    return (mMaxValue - mMinValue) * (position / static_cast<float>(mResolution)) + mMinValue;
}

void EnhancedSlider::setSliderValue(float value)
{
    mSlider->setValue(positionOf(value));
}

void EnhancedSlider::setMaximum(float value)
{
    const float current = mTextBox->getValue();
    mMaxValue = value;
    setValue(current);
}

void EnhancedSlider::setMinimum(float value)
{
    const float current = mTextBox->getValue();
    mMinValue = value;
    setValue(current);
}

void EnhancedSlider::setMarkerValue(float value)
{
    mMarkerValue = fractionOf(value);
    update();
}

void EnhancedSlider::setControlName(const QString& name)
{
    mSlider->setAccessibleName(name);
    mTextBox->lineEdit()->setAccessibleName(name);
}

void EnhancedSlider::slotUpdateTextFromSlider()
{
    if (!mSyncEnabled)
        return;
    const float value = getValueFromSlider();
    mSyncEnabled = false;
    mTextBox->setValue(value);
    mSyncEnabled = true;
    emit valueChanged(value);
}

void EnhancedSlider::slotUpdateSliderFromText()
{
    if (!mSyncEnabled)
        return;
    float value = mTextBox->getValue();
    if (value > mMaxValue) {
        mTextBox->setValue(mMaxValue);
        value = mMaxValue;
    }
    if (value < mMinValue) {
        mTextBox->setValue(mMinValue);
        value = mMinValue;
    }
    mSyncEnabled = false;
    mSlider->setValue(positionOf(value));
    mSyncEnabled = true;
    emit valueChanged(value);
}

void EnhancedSlider::paintEvent(QPaintEvent*)
{
    if (mMarkerValue <= 0)
        return;
    const float offset = mMarkerValue * static_cast<float>(mSlider->width() - GROOVE_MARGINS) + GROOVE_MARGIN;
    const int x = mSlider->x() + static_cast<int>(offset) - 1;
    QPainter painter(this);
    painter.setPen(Qt::red);
    painter.drawLine(x, mSlider->y() + MARKER_TOP, x, mSlider->y() + MARKER_BOTTOM);
}

ConditionalCheckBox::ConditionalCheckBox(const QString& text, QWidget* parent)
    : QCheckBox(text, parent)
{ }

void ConditionalCheckBox::setEnabled(bool enable)
{
    if (enable) {
        if (!isEnabled())
            setChecked(mSavedChecked);
    } else {
        if (isEnabled())
            mSavedChecked = isChecked();
        setChecked(false);
    }
    QWidget::setEnabled(enable);
}

DirectoryLineEdit::DirectoryLineEdit(QWidget* parent)
    : QLineEdit(parent)
{
    // The text is elided to nearly the full width; with the margins of a line edit its ends would be cut.
    setTextMargins(-2, 0, -2, 0);

    auto* completer = new QCompleter(this);
    completer->setModel(new QFileSystemModel(completer));
    setCompleter(completer);
}

void DirectoryLineEdit::elideText()
{
    if (!hasFocus())
        setText(QFontMetrics(font()).elidedText(mPath, Qt::ElideMiddle, width() - 3));
}

void DirectoryLineEdit::finishEditing()
{
    auto* edit = qobject_cast<DirectoryLineEdit*>(QApplication::focusWidget());
    if (!edit || QDir::cleanPath(edit->text()) == QDir::cleanPath(edit->path()))
        return;
    edit->clearFocus();
    edit->setFocus();
}

bool DirectoryLineEdit::setPath(const QString& path, bool createIfMissing)
{
    if (QDir(path).exists()) {
        const bool isOther = path != mPath;
        setPathInternal(path);
        // The typed text belongs to the former directory.
        if (isOther && hasFocus())
            setText(mPath);
        elideText();
        return true;
    }
    return createIfMissing && createDirectory(path);
}

bool DirectoryLineEdit::createDirectory(const QString& path)
{
    QDir dir(path);
    const QString name = dir.dirName();
    if (!dir.cdUp())
        return false;

    const auto answer = QMessageBox::question(
        parentWidget(), tr("Tarnok Ex"),
        asItStands(tr("The directory '%0' does not exist, would you like it to be created?").arg(name)),
        QMessageBox::Ok | QMessageBox::Cancel);
    if (answer != QMessageBox::Ok)
        return false;

    if (dir.mkdir(name))
        setPathInternal(path);
    else
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: unable to create directory '%s'", name.toUtf8().constData());
    elideText();
    return true;
}

void DirectoryLineEdit::setPathInternal(const QString& path)
{
    mPath = path;
    emit pathChanged(mPath);
}

void DirectoryLineEdit::focusInEvent(QFocusEvent* event)
{
    // The completer's list takes the focus and returns it while the user types.
    if (event->reason() != Qt::PopupFocusReason) {
        setText(mPath);
        end(false);
    }
    QLineEdit::focusInEvent(event);
}

void DirectoryLineEdit::focusOutEvent(QFocusEvent* event)
{
    setPath(QDir::cleanPath(text()), true);
    QLineEdit::focusOutEvent(event);
}

void DirectoryLineEdit::keyPressEvent(QKeyEvent* event)
{
    const bool isReturn = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (isReturn && completer()->currentCompletion().isEmpty()) {
        event->accept();
        clearFocus();
    }
    event->ignore();
    QLineEdit::keyPressEvent(event);
}

EnhancedDirectoryLineEdit::EnhancedDirectoryLineEdit(QWidget* parent)
    : QWidget(parent)
    , mBrowseButton(new QPushButton("..."))
    , mLineEdit(new DirectoryLineEdit(this))
{
    mBrowseButton->setFixedWidth(BROWSE_BUTTON_WIDTH);
    setFocusProxy(mLineEdit);

    bool connected = connect(mBrowseButton, SIGNAL(clicked()), this, SLOT(browseForPath()));
    Q_ASSERT(connected);
    connected = connect(mLineEdit, SIGNAL(pathChanged(QString)), this, SIGNAL(pathChanged(QString)));
    Q_ASSERT(connected);

    auto* layout = new QHBoxLayout;
    layout->addWidget(mLineEdit);
    layout->addWidget(mBrowseButton);
    setLayout(layout);
}

void EnhancedDirectoryLineEdit::setControlName(const QString& name)
{
    mLineEdit->setAccessibleName(name);
    mBrowseButton->setAccessibleName(QString("Browse: %1").arg(name));
}

void EnhancedDirectoryLineEdit::resizeEvent(QResizeEvent*)
{
    mLineEdit->elideText();
}

void EnhancedDirectoryLineEdit::browseForPath()
{
    QFileDialog dialog(this, QString(), QString(), QString());
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setDirectory(mLineEdit->path());
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    dialog.setViewMode(QFileDialog::Detail);
    if (!dialog.exec())
        return;
    const QString path = dialog.selectedFiles().value(0);
    if (!path.isEmpty())
        mLineEdit->setPath(path, false);
}

PixmapWidget::PixmapWidget(const QPixmap& pixmap, QWidget* parent)
    : QWidget(parent)
    , mPixmap(pixmap)
{ }

void PixmapWidget::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), palette().brush(QPalette::Window));
    painter.drawPixmap((width() - mPixmap.width()) / 2, (height() - mPixmap.height()) / 2, mPixmap);
}

SearchField::SearchField(QWidget* parent)
    : QFrame(parent)
    , mLineEdit(new QLineEdit)
    , mSearchIcon(new PixmapWidget(QPixmap(":/icon-flat-search.png"), nullptr))
    , mCloseIcon(new PixmapWidget(QPixmap(":/icon-flat-close.png"), nullptr))
{
    QPalette colours = palette();
    colours.setBrush(QPalette::Window, QColor(173, 223, 225));
    mSearchIcon->setFixedWidth(ICON_WIDTH);
    mSearchIcon->setPalette(colours);

    colours.setBrush(QPalette::Window, Qt::white);
    mCloseIcon->installEventFilter(this);
    mCloseIcon->setFixedWidth(ICON_WIDTH);
    mCloseIcon->setPalette(colours);
    mCloseIcon->hide();

    mLineEdit->installEventFilter(this);
    mLineEdit->setFocusPolicy(Qt::ClickFocus);
    mLineEdit->setFrame(false);
    bool connected = connect(mLineEdit, SIGNAL(textChanged(QString)), this, SIGNAL(textChanged(QString)));
    Q_ASSERT(connected);
    connected = connect(mLineEdit, SIGNAL(textChanged(QString)), this, SLOT(makeActive(QString)));
    Q_ASSERT(connected);

    auto* layout = new QHBoxLayout;
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(mLineEdit, 1);
    layout->addWidget(mCloseIcon);
    layout->addWidget(mSearchIcon);
    setLayout(layout);

    setStyleSheet("QFrame {border: 2px solid lightblue;border-radius: 5px; }");
    setFocusProxy(mLineEdit);
    setFocusPolicy(Qt::ClickFocus);
}

void SearchField::setText(const QString& text)
{
    mLineEdit->setText(text);
}

QString SearchField::getText() const
{
    return mLineEdit->text();
}

void SearchField::clear()
{
    mLineEdit->clear();
}

void SearchField::makeActive(const QString& text)
{
    const bool active = !text.isEmpty();
    if (active == mActive)
        return;
    mActive = active;
    mCloseIcon->setVisible(active);
}

bool SearchField::eventFilter(QObject* object, QEvent* event)
{
    if (object == mCloseIcon && event->type() == QEvent::MouseButtonPress)
        mLineEdit->clear();
    return false;
}

NotificationArea::NotificationArea(QWidget*)
    : mTextEdit(new QTextEdit)
{
    mTextEdit->setReadOnly(true);
    mTextEdit->document()->setMaximumBlockCount(MOST_LINES);
    mTextEdit->setUndoRedoEnabled(false);
    mTextEdit->setAccessibleName("Notifications");

    // A line begins on the left, even if its first letters belong to a Hebrew or Arabic file name.
    QTextOption option = mTextEdit->document()->defaultTextOption();
    option.setTextDirection(Qt::LeftToRight);
    mTextEdit->document()->setDefaultTextOption(option);

    auto* layout = new QVBoxLayout;
    layout->addWidget(mTextEdit);
    setLayout(layout);
    logger()->setPrintToQTextEdit(mTextEdit);
}

NotificationArea::~NotificationArea()
{
    logger()->setPrintToQTextEdit(nullptr);
}

} // namespace TARNOK
