// SPDX-License-Identifier: MIT
#include "mainwindow.hpp"

#include "desktop_test.hpp"
#include "file_io.hpp"
#include "property_editor.hpp"
#include "settings_dialog.hpp"
#include "utility_widgets.hpp"

using namespace TARNOK;
using namespace tests;

namespace {

struct MainWindowTest : DesktopTest
{
    void TearDown() override { mWindow.reset(); }

    // Starts as the program does: the window, then the first round of the event loop.
    void start()
    {
        mWindow = std::make_unique<MainWindow>();
        mWindow->show();
        mWindow->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(mWindow.get()));
        ASSERT_SOON(!workspace()->isEmpty());
    }

    QAction* action(const QString& text) const { return childWith<QAction>(mWindow.get(), &QAction::text, text); }
    void trigger(const QString& text) const { action(text)->trigger(); }

    // Triggers an action that asks for a file, and answers with path; an empty path cancels.
    void trigger(const QString& text, const QString& answer, const char* filter = nullptr,
                 const QString& from = {}) const
    {
        FileAnswer choice(answer);
        trigger(text);
        EXPECT_EQ(choice.count, 1) << text.toStdString();
        EXPECT_TRUE(!filter || choice.filters == QStringList(filter)) << choice.filters.join(';').toStdString();
        EXPECT_TRUE(from.isEmpty() || choice.directory == from) << choice.directory.toStdString();
        EXPECT_EQ(choice.mode == QFileDialog::AcceptSave, text.contains("Save") || text.contains("Export"));
    }

    static QStringList actionTexts(const QList<QAction*>& actions)
    {
        QStringList texts;
        for (const QAction* entry : actions)
            texts.append(entry->isSeparator() ? "-" : entry->text());
        return texts;
    }

    QMenu* recentMenu() const { return action("Recent projects")->menu(); }
    QStringList recent() const { return actionTexts(recentMenu()->actions()); }

    QStringList log() const { return mWindow->findChild<QTextEdit*>()->toPlainText().split('\n'); }
    FileIO* fileIO() const { return mWindow->findChild<FileIO*>(); }
    SoundBank* bank() const { return workspace()->first(); }
    QString state() const { return mWindow->statusBar()->currentMessage(); }

    void addSound(const QString& name) { emit fileIO()->requestAddFiles({QUrl::fromLocalFile(makeSound(name))}); }

    QString saveProject(const QString& name, const QString& description)
    {
        SoundBank* saved = makeBank(description);
        EXPECT_TRUE(saved->save(path(name)));
        saved->unload();
        return path(name);
    }

    // Which of Build, Rebuild, Cancel, and import and export of profiles are enabled, as "BRCIE".
    QString enabled() const
    {
        QString letters;
        for (const QString text : {"&Build", "&Rebuild", "C&ancel", "&Import profile...", "Export profile..."}) {
            if (action(text)->isEnabled())
                letters += QString(text).remove('&').front();
        }
        return letters;
    }

    // The widgets through which the Tab key moves the focus in a window until it returns to the first, by their
    // accessible names.
    static QStringList tabStops(QWidget* window)
    {
        QStringList names;
        const QWidget* first = QApplication::focusWidget();
        do {
            QWidget* stop = QApplication::focusWidget();
            const auto* button = qobject_cast<QAbstractButton*>(stop);
            names.append(button && stop->accessibleName().isEmpty() ? button->text() : stop->accessibleName());
            QTest::keyClick(window, Qt::Key_Tab);
        } while (QApplication::focusWidget() != first && names.size() < 50);
        return names;
    }

    std::unique_ptr<MainWindow> mWindow;
};

} // namespace

TEST_F(MainWindowTest, aFirstStartOpensANewProjectWithCompleteMenus)
{
    mWindow = std::make_unique<MainWindow>();
    EXPECT_EQ(mWindow->geometry(), QRect(200, 200, 400, 400));
    EXPECT_EQ(state(), "Ready");
    EXPECT_TRUE(fileIO()->progressBar()->isHidden());
    start();
    EXPECT_EQ(bank()->outputFilePath(), path("Bank/untitled.tnb"));
    EXPECT_FALSE(recentMenu()->isEnabled());
    EXPECT_EQ(enabled(), "BRIE");
    EXPECT_EQ(mWindow->corner(Qt::BottomRightCorner), Qt::RightDockWidgetArea);
    for (const QDockWidget* dock : mWindow->findChildren<QDockWidget*>())
        EXPECT_FALSE(dock->features() & QDockWidget::DockWidgetClosable) << dock->windowTitle().toStdString();

    const QList<QAction*> menus = mWindow->menuBar()->actions();
    QStringList bars = actionTexts(menus);
    for (const int menu : {0, 1, 3})
        bars.append(actionTexts(menus.at(menu)->menu()->actions()).join(','));
    for (const QToolBar* bar : mWindow->findChildren<QToolBar*>())
        bars.append(bar->windowTitle() + ":" + actionTexts(bar->actions()).join(','));
    EXPECT_EQ(bars,
              QStringList({"&File", "&Build", "-", "&Help",
                           "&New,&Open...,&Save,Save &As...,-,Add audio files...,-,&Import from .lst...,-,&Import "
                           "profile...,Export profile...,-,Recent projects,-,E&xit",
                           "&Build,&Rebuild,C&ancel,-,&Settings...", "&About", "File:&New,&Open...,&Save",
                           "Media:Add audio files...", "Build:&Build,&Rebuild,C&ancel"}));

    // New and Cancel share a key. The key is ambiguous only while Cancel is enabled.
    EXPECT_EQ(action("&New")->shortcut(), action("C&ancel")->shortcut());
    for (const char* text : {"&New", "&Open...", "&Save", "Add audio files...", "&Build", "&Rebuild", "C&ancel"})
        EXPECT_EQ(action(text)->icon().availableSizes(), QList<QSize>({QSize(128, 128)})) << text;

    MessageAnswer about(QMessageBox::Ok);
    trigger("&About");
    EXPECT_EQ(about.title, "KESS SoundBank Generator");
    EXPECT_TRUE(about.text.startsWith("KESS SoundBank Generator 2.03.08  (")) << about.text.toStdString();
    Answer<QDialog> settingsDialog([](QDialog* dialog) { dialog->reject(); });
    trigger("&Settings...");
    EXPECT_EQ(settingsDialog.count, 1);
}

TEST_F(MainWindowTest, theTabKeyGoesFromTopToBottom)
{
    start();
    EXPECT_EQ(tabStops(mWindow.get()),
              QStringList({"Project", "Output file", "Output directory", "Browse: Output directory", "Format",
                           "Encode sync points", "Optimize sample rate", "Enable looping", "Embed file names",
                           "Write peak volume", "Notifications"}));

    auto* dialog = mWindow->findChild<SettingsDialog*>();
    dialog->show();
    ASSERT_SOON(dialog->isAncestorOf(QApplication::focusWidget()));
    EXPECT_EQ(tabStops(dialog),
              QStringList({"Default output directory", "Browse: Default output directory", "Cache Directory",
                           "Browse: Cache Directory", "Profile Directory", "Browse: Profile Directory", "Thread count",
                           "Thread count", "Generate C Header", "OK", "Cancel"}));
}

TEST_F(MainWindowTest, theMostRecentProjectIsLoadedOrReplacedByANewOneIfItIsGone)
{
    System::rememberProject(path("gone.tnproj"));
    const QString project = saveProject("game.tnproj", "a b+c");
    System::rememberProject(project);
    start();
    EXPECT_EQ(describe(bank()), "a b+c");
    EXPECT_EQ(log(),
              QStringList({"Loading most recent project: " + project, "Successfully loaded project " + project}));
    EXPECT_EQ(mWindow->windowTitle(), project + "[*] - KESS SoundBank Generator 2.03.08");
    auto* view = mWindow->findChild<QTreeView*>();
    EXPECT_TRUE(view->isExpanded(view->model()->index(0, 0)));

    // Through the menu, as a user does it: the entries are recreated while their signal is being delivered.
    saveProject("gone.tnproj", "d");
    recentMenu()->actions().at(1)->trigger();
    EXPECT_EQ(describe(bank()), "d");
    EXPECT_EQ(recent(), QStringList({path("gone.tnproj"), project}));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);

    QFile::remove(path("gone.tnproj"));
    mWindow.reset();
    bank()->unload();
    start();
    EXPECT_EQ(bank()->fileName(), "untitled");
    EXPECT_EQ(log().last(), "ERROR: Couldn't load file: " + path("gone.tnproj"));
    EXPECT_EQ(recent(), QStringList({path("gone.tnproj"), project}));

    // If a recent project fails to load later, no project is open.
    recentMenu()->actions().first()->trigger();
    EXPECT_TRUE(workspace()->isEmpty());
    EXPECT_EQ(enabled(), "");
    EXPECT_FALSE(mWindow->findChild<QDockWidget*>()->widget()->isEnabled());
}

TEST_F(MainWindowTest, aFailedLoadShowsItsErrorsOnly)
{
    start();
    const QString damaged = writeFile("damaged.tnproj", "<?xml version=\"1.0\"?>\n<project/>\n");
    trigger("&Open...", damaged, "KESS SoundBank Generator Project (*.tnproj)", path("Bank"));
    EXPECT_EQ(log(),
              QStringList({"ERROR: [XML] near line 3, expected beginning 'Soundbank' block",
                           "ERROR: Couldn't load file: " + damaged}));
    EXPECT_EQ(logger()->verbosity(), Logger::OUTPUT_INFO);
    EXPECT_EQ(bank()->fileName(), "untitled") << "a new project replaces it";
    EXPECT_EQ(QApplication::overrideCursor(), nullptr);
}

TEST_F(MainWindowTest, filesAreAddedAndSavedWhereTheUserSays)
{
    start();
    trigger("&Save");
    EXPECT_EQ(log().last(), "Nothing to save");
    trigger("Add audio files...", makeSound("a.wav"));
    EXPECT_EQ(describe(bank()), "a");
    EXPECT_EQ(settings()->getDir("Source"), path("a.wav")) << "the file is preset in the next dialog";
    trigger("&Save", "");
    EXPECT_EQ(fileIO()->projectFileName(), "");
    trigger("&Save", path("song"));
    EXPECT_EQ(fileIO()->projectFileName(), path("song.tnproj"));
    EXPECT_FALSE(bank()->isModified());
    EXPECT_EQ(recent(), QStringList(path("song.tnproj")));

    // A failure to write is reported, and the project keeps its name.
    addSound("b.wav");
    trigger("Save &As...", "/proc/nowhere");
    EXPECT_TRUE(log().contains("ERROR: Cannot write file /proc/nowhere.tnproj:"));
    trigger("Export profile...", "/proc/nowhere");
    EXPECT_EQ(log().last(), "ERROR: Couldn't save profile to /proc/nowhere.prof");
    trigger("&Import profile...", "/proc/nowhere");
    EXPECT_TRUE(log().contains("ERROR: Cannot read file /proc/nowhere:"));
    EXPECT_TRUE(bank()->isModified());
    EXPECT_EQ(fileIO()->projectFileName(), path("song.tnproj"));

    trigger("&Save");
    EXPECT_FALSE(bank()->isModified());
    trigger("Save &As...", path("other.tnproj"));
    EXPECT_EQ(recent(), QStringList({path("other.tnproj"), path("song.tnproj")}));
}

TEST_F(MainWindowTest, closingAModifiedProjectAsksAndTakesEachAnswer)
{
    System::rememberProject(saveProject("game.tnproj", "a"));
    start();
    addSound("b.wav");
    {
        MessageAnswer cancel(QMessageBox::Cancel);
        EXPECT_FALSE(mWindow->close());
        EXPECT_EQ(cancel.title, "KESS SoundBank Generator");
        EXPECT_EQ(cancel.text, "The project has been modified.\n Do you want to save your changes?");
        EXPECT_TRUE(mWindow->isVisible());
        EXPECT_FALSE(QSettings(COMPANY_NAME, APP_NAME).contains("pos"));
        EXPECT_FALSE(mWindow->projectNew());
        EXPECT_EQ(describe(bank()), "a b");
    }
    {
        MessageAnswer save(QMessageBox::Save);
        EXPECT_TRUE(mWindow->projectNew());
    }
    EXPECT_EQ(mWindow->windowTitle(), "[*] - KESS SoundBank Generator 2.03.08");
    addSound("c.wav");
    MessageAnswer discard(QMessageBox::Discard);
    mWindow->resize(700, 650);
    EXPECT_TRUE(mWindow->close());
    EXPECT_EQ(discard.count, 1);
    EXPECT_TRUE(workspace()->isEmpty());

    start();
    EXPECT_EQ(describe(bank()), "a b") << "the saved project is loaded";
    EXPECT_EQ(mWindow->size(), QSize(700, 650));
    EXPECT_TRUE(mWindow->close()) << "without a question";
}

TEST_F(MainWindowTest, aListIsImportedAndSavedBesideItself)
{
    start();
    makeSound("one.wav");
    makeSound("two.wav");
    const QString list = writeFile("list.lst", "one.wav\ntwo.wav,quality=40\n");
    trigger("&Import from .lst...", list, "List file (*.lst)");
    EXPECT_EQ(describe(bank()), "one two");
    EXPECT_EQ(log().last(), "Successfully imported " + list);
    EXPECT_EQ(settings()->getDir("ListFile"), list);
    EXPECT_EQ(bank()->outputFilePath(), path("list.tnb"));
    trigger("&Save");
    EXPECT_TRUE(QFile::exists(path("list.tnproj")));

    // Cancel at the question doesn't stop an import: the imported bank follows that of the project.
    addSound("three.wav");
    MessageAnswer cancel(QMessageBox::Cancel);
    trigger("&Import from .lst...", writeFile("next.lst", "one.wav\n"));
    EXPECT_EQ(cancel.count, 1);
    EXPECT_EQ(workspace()->size(), 2);
    EXPECT_EQ(describe(bank()), "one two three");
    EXPECT_EQ(fileIO()->projectFileName(), path("next.tnproj"));
    workspace()->last()->unload();
}

TEST_F(MainWindowTest, aProfileIsExportedAndImportedUnchanged)
{
    start();
    bank()->profile().setFormat(TARNOK_FORMAT_VORBIS);
    bank()->profile().setQuality(40);
    bank()->profile().setBuildFlags(TARNOK_BUILD_DONTLOOP);
    trigger("Export profile...", path("Profile/loudprof"), "SoundProfile (*.prof)", path("Profile"));
    mWindow->projectNew();
    EXPECT_EQ(bank()->profile().format(), TARNOK_FORMAT_PCM);
    trigger("&Import profile...", path("Profile/loudprof"));
    EXPECT_EQ(bank()->profile().quality(), 40u);
    EXPECT_EQ(mWindow->findChild<QComboBox*>()->currentText(), "Vorbis");

    // A failed export doesn't mark a saved project as modified.
    addSound("a.wav");
    trigger("&Save", path("song"));
    QFile::link("/dev/full", path("full.prof"));
    trigger("Export profile...", path("full"));
    EXPECT_EQ(log().last(), "ERROR: Couldn't save profile to " + path("full.prof"));
    EXPECT_FALSE(bank()->isModified());
}

TEST_F(MainWindowTest, aBuildIsRefusedWithItsReason)
{
    start();
    const auto refusal = [&] {
        EXPECT_FALSE(fileIO()->soundBankBuild());
        return log().last();
    };
    EXPECT_EQ(refusal(), "Nothing to build: project empty");
    addSound("a.wav");
    bank()->setOutputFilePath(path("missing/out.tnb"));
    bank()->profile().setQuality(0);
    EXPECT_EQ(refusal(), "Cannot build: quality is 0");
    bank()->profile().setQuality(100);
    {
        MessageAnswer cancel(QMessageBox::Cancel);
        EXPECT_EQ(refusal(), "Build aborted");
        EXPECT_EQ(cancel.text,
                  "The output directory " + path("missing") + " doesn't exist, would you like it to be created?");
        EXPECT_TRUE(fileIO()->progressBar()->isHidden());
    }
    {
        MessageAnswer yes(QMessageBox::Yes);
        bank()->setOutputFilePath("/proc/missing/out.tnb");
        EXPECT_EQ(refusal(), "ERROR: Unable to create path '/proc/missing'");
        bank()->setOutputFilePath(path("missing/out.tnb"));
        EXPECT_TRUE(fileIO()->soundBankBuild());
        EXPECT_TRUE(QDir(path("missing")).exists());
    }
    ASSERT_SOON(fileIO()->progressBar()->isHidden());
    bank()->unload();
    EXPECT_EQ(refusal(), "Nothing to build: no project loaded");
}

TEST_F(MainWindowTest, aBuildShowsItsProgressAndThenEnablesTheCommands)
{
    start();
    addSound("a.wav");
    addSound("b.wav");
    builder()->stall = true;
    builder()->reports = {{0, 0, TARNOK_STATE_FINISHED}, {1, 0, TARNOK_STATE_DECODING}};
    trigger("&Build");
    QProgressBar* bar = fileIO()->progressBar();
    EXPECT_EQ(enabled(), "CIE");
    EXPECT_EQ(state(), "Processing subsounds");
    ASSERT_SOON(bar->value() == 50);
    EXPECT_TRUE(bar->isVisible());

    builder()->posted.emplace_back(fakes::Report{-1, 0, TARNOK_STATE_WRITING});
    ASSERT_SOON(bar->maximum() == 0);
    EXPECT_EQ(state(), "Writing to file");
    builder()->stall = false;
    ASSERT_SOON(bar->isHidden());
    EXPECT_EQ(bar->maximum(), 100);
    EXPECT_EQ(state(), "Done");
    EXPECT_EQ(enabled(), "BRIE");
    EXPECT_EQ(log().last(), "Soundbank built successfully: " + path("Bank/untitled.tnb"));

    // Each change between build and rebuild initialises the library again.
    const size_t inits = builder()->inits.size();
    for (const char* text : {"&Rebuild", "&Rebuild", "&Build"}) {
        trigger(text);
        ASSERT_SOON(bar->isHidden());
    }
    ASSERT_EQ(builder()->inits.size(), inits + 2);
    EXPECT_TRUE(builder()->inits.at(inits).flags & TARNOK_INIT_REBUILD);
    EXPECT_FALSE(builder()->inits.at(inits + 1).flags & TARNOK_INIT_REBUILD);
}

TEST_F(MainWindowTest, aCancelEnablesTheCommandsAtOnceAndAFailureWhenItIsReported)
{
    start();
    addSound("a.wav");
    builder()->stall = true;
    trigger("&Build");
    builder().waitUntil([] { return !builder()->builds.empty(); });
    // The key of New is also that of Cancel, but the action itself isn't ambiguous.
    trigger("C&ancel");
    EXPECT_EQ(enabled(), "BRIE");
    EXPECT_TRUE(fileIO()->progressBar()->isVisible()) << "the job is polled to its end";
    ASSERT_SOON(fileIO()->progressBar()->isHidden());
    EXPECT_TRUE(log().last().contains("The build process was cancelled during compilation by the user."));

    builder()->stall = false;
    builder()->buildResult = TARNOK_ERR_ENCODER;
    trigger("&Build");
    ASSERT_SOON(fileIO()->progressBar()->isHidden());
    EXPECT_EQ(enabled(), "BRIE");
    EXPECT_TRUE(log().last().contains("Encoder for chosen format has encountered an unexpected error."));
}

struct EditedDirectoryTest : MainWindowTest
{
    void SetUp() override
    {
        MainWindowTest::SetUp();
        start();
        addSound("a.wav");
        trigger("&Save", path("game"));
        mDirectory = mWindow->findChild<PropertyEditor*>()->findChild<DirectoryLineEdit*>();
    }

    void type(const char* name)
    {
        mWindow->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(mWindow.get()));
        mDirectory->setFocus();
        mDirectory->setText(path(name));
    }

    DirectoryLineEdit* mDirectory = nullptr;
};

TEST_F(EditedDirectoryTest, appliesToTheProjectInWhichItWasEdited)
{
    type("Cache");
    trigger("&Save");
    EXPECT_EQ(bank()->fileLocation(), path("Cache"));
    type("Profile");
    trigger("&Build");
    EXPECT_EQ(bank()->fileLocation(), path("Profile"));
    ASSERT_SOON(fileIO()->progressBar()->isHidden());
    type("Bank");
    trigger("&Save");
    type("Cache");
    MessageAnswer save(QMessageBox::Save);
    EXPECT_TRUE(mWindow->projectNew());
    EXPECT_EQ(save.count, 1);
    EXPECT_EQ(bank()->fileLocation(), path("Bank"));
}

// The action continues with the values of the bank.
TEST_F(EditedDirectoryTest, isResetWhenItIsInvalidAndBlocksNoAction)
{
    const QString held = bank()->fileLocation();
    for (const char* text : {"&Build", "&Save"}) {
        type("no/such");
        bank()->setEncryptionKey(text);
        trigger(text);
        EXPECT_EQ(mDirectory->text(), held) << text;
        EXPECT_TRUE(mDirectory->hasFocus()) << text;
        ASSERT_SOON(fileIO()->progressBar()->isHidden());
    }
    EXPECT_EQ(builder()->builds.size(), 1u);
    EXPECT_FALSE(bank()->isModified());
    const QString former = QFileInfo(held).fileName();
    for (const auto& [button, name] : {std::pair(QMessageBox::Cancel, former), {QMessageBox::Ok, QString("fresh")}}) {
        MessageAnswer answer(button);
        type("fresh");
        bank()->setEncryptionKey(name);
        trigger("&Save");
        EXPECT_EQ(answer.text, "The directory 'fresh' does not exist, would you like it to be created?");
        EXPECT_EQ(bank()->fileLocation(), path(name));
        EXPECT_FALSE(bank()->isModified());
    }
}
