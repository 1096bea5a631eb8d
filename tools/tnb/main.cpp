// SPDX-License-Identifier: MIT
// The bank inspector: its command line.
#include "../key_file.hpp"
#include "../standard_streams.hpp"

#include "diff.hpp"
#include "extract.hpp"
#include "info.hpp"
#include "text.hpp"
#include "validate.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <iostream>
#include <sstream>

namespace {

using tnb::Key;
using tnb::Status;

// Where the key of an encrypted bank comes from.
struct KeyOptions
{
    std::string text;
    std::string file;

    void addTo(CLI::App& command) { add(command, "-k,--key", "--key-file", "Key of an encrypted bank"); }

    // For a second bank with a key of its own.
    void addSecondTo(CLI::App& command)
    {
        add(command, "--new-key", "--new-key-file", "Key of NEW; default: the key of OLD");
    }

    [[nodiscard]] bool isGiven() const { return !text.empty() || !file.empty(); }

    [[nodiscard]] base::Result<Key> key() const
    {
        if (!file.empty())
            return read();
        return text.empty() ? Key() : Key(text);
    }

private:
    void add(CLI::App& command, const std::string& option, const std::string& fileOption, const std::string& help)
    {
        CLI::Option* given = command.add_option(option, text, help);
        command.add_option(fileOption, file, "File whose first line is the key; - means standard input")
            ->excludes(given);
    }

    static base::Error error(const std::string& reason) { return {base::ErrorCode::Invalid, reason}; }

    [[nodiscard]] base::Result<Key> read() const
    {
        std::string line;
        if (const std::string fault = readKeyFile(file, &line); !fault.empty())
            return error(fault);
        return Key(std::move(line));
    }
};

// Runs a command on one bank, and reports on standard error what stopped it.
template <typename Command>
Status attempt(const std::string& bank, Command command)
{
    const base::Result<Status> status = command();
    if (status)
        return *status;
    std::cerr << "tnb: " << tnb::printable(bank) << ": " << tnb::printable(status.error().text) << '\n';
    return tnb::statusFor(status.error());
}

class Program
{
public:
    Program()
    {
        mApp.set_version_flag("--version", "tnb " TNB_VERSION);
        mApp.set_help_flag("-h,--help", "Print this help and exit");
        mApp.require_subcommand(1);
        mApp.footer(
            "Exit status: 0 success, 1 a bank is damaged, 2 a bank can't be read, a file can't be written, or the "
            "arguments are wrong. Of diff: 0 no difference, 1 the banks differ, 2 as above, or a bank is damaged.");
        addInfo();
        addValidate();
        addExtract();
        addDiff();
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

private:
    // CLI11 repeats arguments in its messages. They may be file names that a stranger chose, so they are escaped.
    [[nodiscard]] int report(const CLI::ParseError& error) const
    {
        std::ostringstream output;
        std::ostringstream errors;
        const int status = mApp.exit(error, output, errors);
        std::cout << output.str();
        std::istringstream lines(errors.str());
        for (std::string line; std::getline(lines, line);)
            std::cerr << tnb::printable(line) << '\n';
        return status == 0 ? 0 : static_cast<int>(Status::CannotRead);
    }

    // Runs command(key) on a bank. If the key can't be read, the message names that bank.
    template <typename Command>
    Status withKey(const KeyOptions& options, const std::string& bank, Command command)
    {
        return attempt(bank, [&]() -> base::Result<Status> {
            base::Result<Key> key = options.key();
            if (!key)
                return std::move(key.error());
            return command(*key);
        });
    }

    void addInfo()
    {
        CLI::App* command = mApp.add_subcommand("info", "List the contents of a bank");
        command->add_option("BANK", mInfo.bank, "Bank to list")->required();
        command->add_flag("--json", mInfo.json, "Print JSON instead of text");
        mKey.addTo(*command);
        command->callback([this] {
            mStatus = withKey(mKey, mInfo.bank, [this](const Key& key) {
                mInfo.key = key;
                return tnb::showInfo(mInfo);
            });
        });
    }

    void addValidate()
    {
        CLI::App* command = mApp.add_subcommand("validate", "Check banks for damage by decoding everything");
        command->add_option("BANK", mBanks, "Banks to check")->required();
        mKey.addTo(*command);
        command->callback([this] {
            // The key is read once: standard input can't be read again.
            mStatus = withKey(mKey, mBanks.front(), [this](const Key& key) {
                Status worst = Status::Success;
                for (const std::string& bank : mBanks)
                    worst = std::max(worst, attempt(bank, [&] { return tnb::validate(bank, key); }));
                return base::Result<Status>(worst);
            });
        });
    }

    void addExtract()
    {
        CLI::App* command = mApp.add_subcommand("extract", "Write sounds of a bank as WAV files");
        command->add_option("BANK", mExtract.bank, "Bank that contains the sounds")->required();
        command->add_option("SOUND", mExtract.sounds, "Index (from 0) or name of a sound; default: all sounds");
        command->add_option("--name", mExtract.names, "Name of a sound, even if it consists of digits")
            ->expected(1)
            ->take_all();
        command->add_option("-o,--output", mExtract.folder, "Output folder, created if it doesn't exist")
            ->capture_default_str();
        command->add_flag("-f,--force", mExtract.replace, "Replace existing files");
        mKey.addTo(*command);
        command->callback([this] {
            mStatus = withKey(mKey, mExtract.bank, [this](const Key& key) {
                mExtract.key = key;
                return tnb::extract(mExtract);
            });
        });
    }

    void addDiff()
    {
        CLI::App* command = mApp.add_subcommand("diff", "List what changed between two banks");
        command->add_option("OLD", mDiff.oldBank, "Bank to compare with")->required();
        command->add_option("NEW", mDiff.newBank, "Bank to compare")->required();
        command->add_flag("--json", mDiff.json, "Print JSON instead of text");
        mKey.addTo(*command);
        mNewKey.addSecondTo(*command);
        command->callback([this] {
            const auto diff = [this](const Key& key) {
                mDiff.newKey = key;
                return tnb::showDiff(mDiff);
            };
            mStatus = withKey(mKey, mDiff.oldBank, [&](const Key& key) {
                mDiff.oldKey = key;
                return mNewKey.isGiven() ? withKey(mNewKey, mDiff.newBank, diff) : diff(key);
            });
        });
    }

    CLI::App mApp{"Inspects sound banks: lists, checks, compares and extracts their sounds.", "tnb"};
    KeyOptions mKey;
    KeyOptions mNewKey;
    tnb::InfoRequest mInfo;
    std::vector<std::string> mBanks;
    tnb::ExtractRequest mExtract;
    tnb::DiffRequest mDiff;
    Status mStatus = Status::Success;
};

} // namespace

int main(int argc, char** argv)
{
    openMissingStandardStreams();

    // A write beyond the file size limit then fails and is reported, instead of ending the process.
    std::signal(SIGXFSZ, SIG_IGN);

    // For wcwidth(). Names are UTF-8 whatever the machine's locale.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    try {
        const int status = Program().run(argc, argv);
        std::cout.flush();
        if (!std::cout) {
            std::cerr << "tnb: can't write to standard output\n";
            return static_cast<int>(Status::CannotRead);
        }
        return status;
    } catch (const std::exception& error) {
        std::cerr << "tnb: " << tnb::printable(error.what()) << '\n';
        return static_cast<int>(Status::CannotRead);
    }
}
