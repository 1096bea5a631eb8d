// SPDX-License-Identifier: MIT
// Measures how long the window of the desktop program keeps its user waiting with a large project.
//
//     desktop_latency [SOUNDS [ROUNDS]]
//
// Makes a project of SOUNDS short sounds (10,000), works on it as a user does, and builds it ROUNDS times (3) in every
// way. During a build, another thread posts events to the window's thread. The longest wait is what a user would
// notice; the longest slice is the processor time that the window's thread spent between two events. A wait without a
// slice as long means that the machine was busy with something else.
#include "build_system.hpp"
#include "file_io.hpp"
#include "mainwindow.hpp"
#include "project_browser.hpp"
#include "utility_classes.hpp"
#include "workspace.hpp"

#include <QAction>
#include <QApplication>
#include <QProgressBar>
#include <QProgressDialog>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <sndfile.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <functional>
#include <thread>
#include <vector>

using namespace TARNOK;

namespace {

double milliseconds(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
}

// Posts events to itself from its own thread, and records how long each of them waited.
class Probe : public QObject
{
public:
    Probe()
        : mTicker([this](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                QCoreApplication::postEvent(this, new Ping);
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        })
    { }

    bool event(QEvent* event) override
    {
        if (event->type() != QEvent::User)
            return QObject::event(event);
        mWaits.push_back(milliseconds(CLOCK_MONOTONIC) - static_cast<Ping*>(event)->posted);
        const double used = milliseconds(CLOCK_THREAD_CPUTIME_ID);
        mSlice = std::max(mSlice, used - mUsed);
        mUsed = used;
        return true;
    }

    // The waits, sorted by length.
    std::vector<double> waits()
    {
        mTicker.request_stop();
        mTicker.join();
        QCoreApplication::removePostedEvents(this);
        std::sort(mWaits.begin(), mWaits.end());
        return mWaits;
    }

    double slice() const { return mSlice; }

private:
    struct Ping : QEvent
    {
        Ping()
            : QEvent(QEvent::User)
        { }
        double posted = milliseconds(CLOCK_MONOTONIC);
    };

    std::vector<double> mWaits;
    double mUsed = milliseconds(CLOCK_THREAD_CPUTIME_ID);
    double mSlice = 0;
    std::jthread mTicker;
};

// The window, with the actions of a user.
class Bench
{
public:
    explicit Bench(int sounds)
        : mSounds(sounds)
    {
        for (const char* name : {"Bank", "Cache", "Profile"}) {
            QDir().mkpath(path(name));
            Singleton<System>::instance()->setDir(name, path(name));
        }
        mWindow.resize(1000, 700);
        mWindow.show();
        QTest::qWait(50);
        mBrowser = mWindow.findChild<ProjectBrowser*>();
        mView = mBrowser->findChild<QTreeView*>();
    }

    void run(int rounds)
    {
        makeFiles();
        prepareProject();
        open();
        scrollAndSelect();
        addFiles();
        restructure();
        for (const auto& [format, name] :
             {std::pair(TARNOK_FORMAT_PCM, "PCM"), std::pair(TARNOK_FORMAT_KADPCM, "KADPCM"),
              std::pair(TARNOK_FORMAT_VORBIS, "Vorbis")}) {
            bank()->profile().setFormat(format);
            build("&Build", QString("%1, first").arg(name), 1);
            build("&Build", QString("%1, cached").arg(name), rounds);
            build("&Rebuild", QString("%1, rebuilt").arg(name), rounds);
        }
        interleaveAll();
    }

private:
    QString path(const QString& name) const { return mFolder.path() + "/" + name; }
    QString sound(int index) const { return path(QString("sound%1.wav").arg(index, 5, 10, QChar('0'))); }
    static SoundBank* bank() { return Singleton<Workspace>::instance()->first(); }

    QAction* action(const QString& text) const
    {
        for (QAction* candidate : mWindow.findChildren<QAction*>()) {
            if (candidate->text() == text)
                return candidate;
        }
        return nullptr;
    }

    static double measure(const std::function<void()>& work)
    {
        const double start = milliseconds(CLOCK_MONOTONIC);
        work();
        QCoreApplication::processEvents(); // includes the painting
        return milliseconds(CLOCK_MONOTONIC) - start;
    }

    static void report(const QString& what, double took) { std::printf("%-34s %9.1f ms\n", qPrintable(what), took); }

    static void report(const QString& what, std::vector<double> times)
    {
        std::sort(times.begin(), times.end());
        std::printf("%-34s %9.1f ms median %9.1f ms worst\n", qPrintable(what), times[times.size() / 2], times.back());
    }

    // Makes different sounds of about 0.1 s: a tenth more than the project contains, to be added later.
    void makeFiles() const
    {
        std::vector<short> samples(4410);
        for (int index = 0; index < mSounds + mSounds / 10; ++index) {
            for (size_t i = 0; i < samples.size(); ++i)
                samples[i] = short((i * size_t(index + 50)) % 20000);
            SF_INFO info = {};
            info.samplerate = 44100;
            info.channels = 1;
            info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
            SNDFILE* file = sf_open(sound(index).toUtf8().constData(), SFM_WRITE, &info);
            sf_write_short(file, samples.data(), sf_count_t(samples.size()));
            sf_close(file);
        }
    }

    void prepareProject()
    {
        report("probing the files alone", measure([&] {
                   for (int index = 0; index < mSounds; ++index) {
                       int rate, channels, length;
                       KESS_SOUND_FORMAT format;
                       Singleton<SoundFileValidator>::instance()->isValid(sound(index), &rate, &channels, &length,
                                                                          &format);
                   }
               }));
        for (int index = 0; index < mSounds; ++index)
            bank()->addSubsound(sound(index));
        bank()->setOutputFilePath(path("large.tnb"));
        bank()->save(path("large.tnproj"));
    }

    void open()
    {
        auto* files = mWindow.findChild<FileIO*>();
        report("opening the project", measure([&] { files->projectOpenInternal(path("large.tnproj")); }));
        mBrowser->expandItem(bank());
    }

    void scrollAndSelect()
    {
        std::vector<double> keys;
        mView->setFocus();
        mView->setCurrentIndex(mView->model()->index(0, 0));
        keys.reserve(200);
        for (int i = 0; i < 200; ++i)
            keys.push_back(measure([&] { QTest::keyClick(mView, i % 4 == 3 ? Qt::Key_PageDown : Qt::Key_Down); }));
        report("a key that scrolls or selects", keys);
        keys.clear();
        for (int i = 0; i < 20; ++i) {
            keys.push_back(measure([&] { mView->verticalScrollBar()->setValue((i * 7919) % mSounds); }));
            keys.push_back(measure([&] { QTest::keyClick(mView, i % 2 ? Qt::Key_Home : Qt::Key_End); }));
        }
        report("a jump over the whole tree", keys);
        report("selecting all", measure([&] { QTest::keyClick(mView, Qt::Key_A, Qt::ControlModifier); }));
    }

    void addFiles()
    {
        QList<QUrl> urls;
        for (int index = mSounds; index < mSounds + mSounds / 10; ++index)
            urls.append(QUrl::fromLocalFile(sound(index)));
        report(QString("adding %1 files").arg(urls.size()), measure([&] { mBrowser->addFiles(urls); }));

        // Cancels early and measures how long the dialog stays open.
        double asked = 0;
        QTimer::singleShot(100, [&] {
            asked = milliseconds(CLOCK_MONOTONIC);
            if (auto* dialog = mBrowser->findChild<QProgressDialog*>())
                dialog->cancel();
        });
        for (int i = 0; i < 4; ++i)
            urls += urls;
        mBrowser->addFiles(urls);
        report("cancelling that", asked > 0 ? milliseconds(CLOCK_MONOTONIC) - asked : -1);
    }

    void select(int first, int last)
    {
        const QModelIndex parent = mView->model()->index(0, 0);
        mView->selectionModel()->select(
            {mView->model()->index(first, 0, parent), mView->model()->index(last, 0, parent)},
            QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    }

    void restructure()
    {
        std::vector<double> merges, removals;
        for (int i = 0; i < 10; ++i) {
            select(i * 900, i * 900 + 1);
            merges.push_back(measure([&] { mBrowser->interleaveSubsounds(); }));
            select(i * 800, i * 800 + 2);
            removals.push_back(measure([&] { mBrowser->removeItems(); }));
        }
        report("interleaving two", merges);
        report("removing three", removals);
        select(0, mSounds / 10);
        report(QString("removing %1").arg(mSounds / 10 + 1), measure([&] { mBrowser->removeItems(); }));
    }

    void interleaveAll()
    {
        for (int row = 0; row < bank()->size(); ++row)
            bank()->at(row)->addFile(sound(row));
        mBrowser->update();
        report("opening all rows, all interleaved", measure([&] { mView->expandAll(); }));
        report("a reset of that", measure([&] { mBrowser->update(); }));
        select(5, 5);
        report("removing one of that", measure([&] { mBrowser->removeItems(); }));
    }

    void build(const QString& command, const QString& what, int rounds)
    {
        std::vector<double> took, medians, worst, slices;
        for (int round = 0; round < rounds; ++round) {
            Probe probe;
            took.push_back(measure([&] {
                action(command)->trigger();
                const auto* bar = mWindow.findChild<FileIO*>()->progressBar();
                while (!bar->isHidden())
                    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
            }));
            const std::vector<double> waits = probe.waits();
            medians.push_back(waits[waits.size() / 2]);
            worst.push_back(waits.back());
            slices.push_back(probe.slice());
        }
        const auto middle = [](std::vector<double> values) {
            std::sort(values.begin(), values.end());
            return values[values.size() / 2];
        };
        std::printf("%-16s %9.1f ms, an event waits %5.2f ms, worst %6.1f ms (%6.1f ms in the worst round), "
                    "longest slice %6.1f ms (%6.1f ms)\n",
                    qPrintable(what), middle(took), middle(medians), middle(worst),
                    *std::max_element(worst.begin(), worst.end()), middle(slices),
                    *std::max_element(slices.begin(), slices.end()));
        std::fflush(stdout);
    }

    int mSounds;
    QTemporaryDir mFolder;
    MainWindow mWindow;
    ProjectBrowser* mBrowser;
    QTreeView* mView;
};

} // namespace

int main(int argc, char** argv)
{
    // The settings store is temporary, and no screen is used unless one is requested.
    const QTemporaryDir home;
    qputenv("HOME", home.path().toUtf8());
    qputenv("XDG_CONFIG_HOME", home.path().toUtf8());
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    Bench(argc > 1 ? std::atoi(argv[1]) : 10000).run(argc > 2 ? std::atoi(argv[2]) : 3);
    return 0;
}
