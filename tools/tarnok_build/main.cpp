// SPDX-License-Identifier: MIT
// The front end for build systems: its command line.
#include "../standard_streams.hpp"

#include "run.hpp"

#include "console_remarks.hpp"
#include "stop_signals.hpp"
#include "utility_functions.hpp"

#include <CLI/CLI.hpp>

#include <QByteArrayView>
#include <QCoreApplication>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace tarnok_build;

QString text(const std::string& bytes)
{
    return QString::fromStdString(bytes);
}

// The options about inputs and settings, which several commands share.
class SourceOptions
{
public:
    void addInputs(CLI::App& command)
    {
        command.add_option("INPUT", mInputs,
                           "Projects, profiles, lists, folders and sound files, in the order of the bank");
        command.add_option("--input-list", mInputList, "File with one more INPUT per line");
        command.add_flag("-r,--recursive", mRequest.recursive, "Include the subfolders of folders");
        command.add_flag("--allow-tnb", mRequest.allowTnb, "Accept banks with a single sound as sound files");
    }

    void addSettings(CLI::App& command)
    {
        command.add_flag("--sort", mRequest.sorted,
                         "Sort the files of folders by path, for the same bank on every machine");
        command.add_flag("--interleave", mRequest.interleaved, "Interleave all files into one sound");
        command.add_flag("--ignore-errors", mRequest.ignoreErrors, "Leave out sounds that can't be used");
        command.add_option("-f,--format", mFormat, "pcm, kadpcm, vorbis, opus, xma or at9")
            ->check([](const std::string& word) {
                bool ok = false;
                TARNOK::stringToFormat(text(word), &ok);
                return ok ? std::string() : "unknown format '" + word + "'";
            });
        command.add_option("-q,--quality", mRequest.quality, "Quality of Vorbis, Opus, XMA and AT9")
            ->check(CLI::Range(TARNOK::MIN_QUALITY, TARNOK::MAX_QUALITY));
        command.add_option("--key-file", mKeyFile,
                           "File whose first line is the key of the bank; - means standard input");
        addFlag(command, "--no-loop", TARNOK_BUILD_DONTLOOP, "Encode sounds for playing once");
        addFlag(command, "--no-sync-points", TARNOK_BUILD_DISABLESYNCPOINTS, "Leave out the markers of sound files");
        addFlag(command, "--no-names", TARNOK_BUILD_TNB5_DONTWRITENAMES, "Store no names");
        addFlag(command, "--no-guid", TARNOK_BUILD_NOGUID, "Store no GUID");
        addFlag(command, "--optimize-sample-rate", TARNOK_BUILD_OPTIMIZESAMPLERATE,
                "Resample to the lowest rate that keeps everything audible");
        addFlag(command, "--write-peak-volume", TARNOK_BUILD_WRITEPEAKVOLUME, "Store the largest sample of each sound");
        addFlag(command, "--xma-filter-high-freq", TARNOK_BUILD_FILTERHIGHFREQ, "XMA only");
        addFlag(command, "--xma-disable-seeking", TARNOK_BUILD_DISABLESEEKING, "XMA only");
    }

    SourceRequest request() const
    {
        SourceRequest request = mRequest;
        for (const std::string& input : mInputs)
            request.inputs += text(input);
        request.inputList = text(mInputList);
        request.keyFile = text(mKeyFile);
        if (!mFormat.empty())
            request.format = TARNOK::stringToFormat(text(mFormat), nullptr);
        return request;
    }

    bool hasInputs() const { return !mInputs.empty() || !mInputList.empty(); }

private:
    void addFlag(CLI::App& command, const char* name, unsigned int flag, const char* help)
    {
        command.add_flag_callback(
            name, [this, flag] { mRequest.flags |= flag; }, help);
    }

    SourceRequest mRequest;
    std::vector<std::string> mInputs;
    std::string mInputList;
    std::string mFormat;
    std::string mKeyFile;
};

// The options about the bank and its dependency file.
struct OutputOptions
{
    std::string output;
    std::string depfile;
    std::string depfileTarget;

    void addTo(CLI::App& command)
    {
        command.add_option("-o,--output", output, "Path of the bank; a project has one of its own");
        CLI::Option* file = command.add_option("--depfile", depfile, "Write a dependency file for make or Ninja");
        command.add_option("--depfile-target", depfileTarget, "Target in the dependency file; default: the bank")
            ->needs(file);
    }

    template <typename Request>
    void copyTo(Request* request) const
    {
        request->output = text(output);
        request->depfile = text(depfile);
        request->depfileTarget = text(depfileTarget);
    }
};

class Program
{
public:
    Program()
    {
        mApp.set_version_flag("--version", "tarnok-build " TARNOK_BUILD_VERSION);
        mApp.set_help_flag("-h,--help", "Print this help and exit");
        mApp.require_subcommand(1);
        mApp.footer("Exit status: 0 done, 1 an input is wrong or a bank was not built, 2 the arguments are wrong.");
        addRun();
        addDepends();
        addCheck();
    }

    int run(int argc, char** argv)
    {
        try {
            mApp.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return report(error);
        }
        return static_cast<int>(mStatus);
    }

    // Then the status is about the bank, and lost output doesn't change it.
    bool hasBuilt() const { return mApp.got_subcommand("run"); }

private:
    // CLI11 repeats arguments in its messages.
    int report(const CLI::ParseError& error) const
    {
        std::ostringstream output;
        std::ostringstream errors;
        const int status = mApp.exit(error, output, errors);
        std::cout << output.str();
        std::cerr << TARNOK::withEscapedControls(text(errors.str()), QLatin1StringView("\n")).toStdString();
        return static_cast<int>(status == 0 ? Status::Done : Status::BadArguments);
    }

    // Adds a command that needs inputs.
    template <typename Action>
    CLI::App* add(const char* name, const char* help, SourceOptions* source, Action action)
    {
        CLI::App* command = mApp.add_subcommand(name, help);
        source->addInputs(*command);
        command->callback([this, source, action] {
            if (!source->hasInputs())
                throw CLI::RequiredError("INPUT or --input-list");
            mStatus = action();
        });
        return command;
    }

    void addRun()
    {
        CLI::App* command = add("run", "Build a bank", &mRunSource, [this] {
            mRun.source = mRunSource.request();
            mRunOutput.copyTo(&mRun);
            mRun.header = text(mHeader);
            mRun.cacheFolder = text(mCacheFolder);
            mRun.json = mLog == "json";
            return tarnok_build::run(mRun);
        });
        mRunSource.addSettings(*command);
        mRunOutput.addTo(*command);
        command
            ->add_flag("--depfile-outputs", mRun.depfileOutputs,
                       "Name bank and header as dependencies too, for a target that is a stamp of make")
            ->needs("--depfile");
        command->add_option("--header", mHeader, "Write a C header with the names and indices of the sounds");
        command->add_option("-j,--jobs", mRun.jobs, "Sounds encoded at the same time; default: number of processors")
            ->check(CLI::Range(1, 256));
        command->add_option("--cache-dir", mCacheFolder, "Folder of the cache, created if it doesn't exist");
        command->add_flag("--rebuild", mRun.rebuild, "Encode everything again, whatever the cache holds");
        command->add_flag("--keep-unchanged", mRun.keepUnchanged,
                          "Don't touch a bank or header that would stay the same");
        command->add_option("--log", mLog, "json: one JSON object per event on standard output")
            ->check(CLI::IsMember({"text", "json"}));
        command->add_flag("--quiet", mRun.quiet, "Print errors only, and no progress bar");
    }

    void addDepends()
    {
        CLI::App* command = add("depends", "Print what a bank would be made from", &mDependsSource, [this] {
            mDepends.source = mDependsSource.request();
            mDependsOutput.copyTo(&mDepends);
            return tarnok_build::depends(mDepends);
        });
        mDependsSource.addSettings(*command);
        mDependsOutput.addTo(*command);
        command->add_flag("--json", mDepends.json, "Print JSON instead of text");
    }

    void addCheck()
    {
        CLI::App* command = add("check", "Report line by line what is wrong with projects, profiles, lists and sounds",
                                &mCheckSource, [this] {
                                    mCheck.source = mCheckSource.request();
                                    return tarnok_build::check(mCheck);
                                });
        command->add_flag("--json", mCheck.json, "Print JSON instead of text");
    }

    CLI::App mApp{"Builds sound banks for build systems.", "tarnok-build"};
    SourceOptions mRunSource;
    OutputOptions mRunOutput;
    std::string mHeader;
    std::string mCacheFolder;
    std::string mLog = "text";
    RunRequest mRun;
    SourceOptions mDependsSource;
    OutputOptions mDependsOutput;
    DependsRequest mDepends;
    SourceOptions mCheckSource;
    CheckRequest mCheck;
    Status mStatus = Status::Done;
};

// Names must be UTF-8: Qt would silently change other bytes.
bool hasForeignArgument(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (QByteArrayView(argv[i]).isValidUtf8())
            continue;
        complain(QString("argument %1, '%2', is not UTF-8").arg(i).arg(QString::fromUtf8(argv[i])));
        return true;
    }
    return false;
}

// Ends the process by the signal itself, so that the caller sees which one it was.
void endBySignal(int number)
{
    complain(QString("stopped by SIG%1").arg(sigabbrev_np(number)));
    std::signal(number, SIG_DFL);
    std::raise(number);
}

int runProgram(int argc, char** argv)
{
    Program program;
    const int status = program.run(argc, argv);
    std::cout.flush();
    if (const int number = TARNOK::StopSignals::noted())
        endBySignal(number);
    if (std::fflush(stdout) == 0 && !std::ferror(stdout) && std::cout)
        return status;
    complain("can't write to standard output");
    return status == 0 && !program.hasBuilt() ? static_cast<int>(Status::Failed) : status;
}

} // namespace

int main(int argc, char** argv)
{
    openMissingStandardStreams();

    // A build continues when the reader of its events goes away or a log file is full.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);

    // File names are UTF-8 whatever the locale; under another locale Qt would print a warning on every run.
    setenv("LC_ALL", "C.UTF-8", 1);

    // Qt removes arguments that it knows, at any position. So it doesn't get those of the tool.
    int ownCount = 1;
    char* ownArguments[] = {argv[0], nullptr};
    const QCoreApplication application(ownCount, ownArguments);

    if (hasForeignArgument(argc, argv))
        return static_cast<int>(Status::BadArguments);
    try {
        return runProgram(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tarnok-build: %s\n", error.what());
        return static_cast<int>(Status::Failed);
    }
}
