// SPDX-License-Identifier: MIT
// The files of a build: the bank and its C header.
#include "base/file.hpp"
#include "builder_test.hpp"

#include <cerrno>
#include <cstdlib>
#include <sstream>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace test;
using Output = BuilderTest;

namespace {

std::atomic<bool> diskFails = false;

std::string runCommand(const std::string& command)
{
    EXPECT_EQ(std::system((command + " >output 2>&1").c_str()), 0) << command;
    const std::vector<uint8_t> text = readFile("output");
    return {text.begin(), text.end()};
}

} // namespace

// Replaces the system's call: when the disk couldn't take the data, the first fsync reports it.
extern "C" __attribute__((visibility("default"))) int sync_file_range(int, off64_t, off64_t, unsigned flags)
{
    errno = EIO;
    return diskFails && (flags & SYNC_FILE_RANGE_WAIT_AFTER) ? -1 : 0;
}

TEST_F(Output, ReplacesTheFormerBankOnlyWhenTheNewOneIsComplete)
{
    BuildArguments arguments = makeArguments(makeSounds(2));
    arguments.sounds.pop_back();
    arguments.initFlags |= TARNOK_INIT_CREATE_HEADER;
    const Bytes former = mustBuild(arguments).bank;
    const Bytes formerHeader = readFile(fullPath("bank.h"));

    arguments.sounds.push_back({fullPath("missing.wav")});
    EXPECT_EQ(build(arguments).result, TARNOK_ERR_FILE_NOT_FOUND);
    arguments.sounds.back() = {makeSound("long.wav", noise(2, 44100, 1'300'000))};
    diskFails = true;
    EXPECT_TRUE(build(arguments).failed(TARNOK_ERR_FILE_OS, "the disk reported an error while writing bank.tnb"));
    diskFails = false;
    EXPECT_EQ(readFile(arguments.output), former);
    EXPECT_EQ(readFile(fullPath("bank.h")), formerHeader);

    arguments.sounds.back() = {fullPath("sound1.flac")};
    mustBuild(arguments);
    EXPECT_EQ(readSounds(arguments.output).at(1).name, "sound1");
    EXPECT_NE(readFile(fullPath("bank.h")), formerHeader);

    arguments.initFlags = TARNOK_INIT_ALWAYS;
    arguments.flags = TARNOK_BUILD_TNB5_DONTWRITENAMES;
    arguments.key = "Gänsemarsch";
    fs::remove(fullPath("bank.h"));
    mustBuild(arguments);
    EXPECT_FALSE(fs::exists(fullPath("bank.h"))) << "not requested";
    EXPECT_TRUE(readSounds(arguments.output, "Gansemarsch").empty());
    EXPECT_EQ(readSounds(arguments.output, arguments.key).at(1).name, "");
}

TEST_F(Output, FollowsLinksAndRefusesAnythingButFiles)
{
    BuildArguments arguments = makeArguments(makeSounds(1));
    fs::create_directory(fullPath("elsewhere"));
    writeFile(fullPath("elsewhere/real.tnb"), "the bank before");
    fs::create_symlink("elsewhere/real.tnb", fullPath("link.tnb"));
    arguments.output = fullPath("link.tnb");
    mustBuild(arguments);
    EXPECT_TRUE(fs::is_symlink(arguments.output));
    EXPECT_EQ(readSounds(fullPath("elsewhere/real.tnb")).size(), 1u);

    arguments.initFlags |= TARNOK_INIT_CREATE_HEADER;
    for (const char* pipe : {"pipe", "piped.h"})
        ASSERT_EQ(mkfifo(fullPath(pipe).c_str(), 0666), 0);
    const std::pair<std::string, const char*> refused[] = {
        {fullPath("elsewhere"), "elsewhere"},
        {fullPath("pipe"), "pipe"},
        {fullPath("nowhere/bank.tnb"), "nowhere"},
        {fullPath("sound0.wav/deep/bank.tnb"), "sound0.wav is a file, not a folder"},
        {fullPath(std::string(300, 'x')), "too long"},
        {"/proc/bank.tnb", "/proc"},
        {fullPath("piped.tnb"), "piped.h: this is a device or pipe"}};
    for (const auto& [path, text] : refused) {
        arguments.output = path;
        const Outcome outcome = build(arguments);
        EXPECT_TRUE(outcome.failed(TARNOK_ERR_FILE_OS, text)) << path;
        EXPECT_EQ(outcome.reportedStates(-1), std::vector{TARNOK_STATE_FAILED}) << path;
        EXPECT_EQ(outcome.countReports(TARNOK_STATE_DECODING), 0) << "reported immediately, not after hours";
    }
    arguments.output = fullPath("bank.h");
    EXPECT_EQ(build(arguments).result, TARNOK_ERR_INVALID_PARAM);
}

TEST_F(Output, KeepsThePermissionsOfTheFormerBank)
{
    BuildArguments arguments = makeArguments(makeSounds(1));
    arguments.initFlags |= TARNOK_INIT_CREATE_HEADER;
    const mode_t former = umask(027);
    mustBuild(arguments);
    EXPECT_EQ(unsigned(fs::status(arguments.output).permissions()), 0640u) << "a new one";
    for (const auto& [mode, kept] :
         {std::pair<unsigned, unsigned>{0444, 0444}, {0600, 0600}, {0666, 0666}, {04755, 0755}}) {
        for (const std::string& path : {arguments.output, fullPath("bank.h")})
            fs::permissions(path, fs::perms(mode));
        mustBuild(arguments);
        for (const std::string& path : {arguments.output, fullPath("bank.h")})
            EXPECT_EQ(unsigned(fs::status(path).permissions()), kept) << path << std::oct << mode;
    }
    umask(former);
}

TEST_F(Output, KeepsFilesThatWouldStayTheSame)
{
    BuildArguments arguments = makeArguments(makeSounds(2));
    arguments.initFlags |= TARNOK_INIT_CREATE_HEADER | TARNOK_INIT_KEEP_UNCHANGED;
    arguments.key = "Geheimnis";
    fs::create_directory(fullPath("include"));
    const std::string header = fullPath("include/sounds.hpp");
    ASSERT_EQ(Tarnok_SetHeaderFile(""), TARNOK_ERR_INVALID_PARAM);
    ASSERT_EQ(Tarnok_SetHeaderFile(std::string(header).c_str()), TARNOK_OK) << "it keeps no pointer";
    const auto nodes = [&] {
        return std::pair(base::readStamp(arguments.output)->inode, base::readStamp(header)->inode);
    };
    mustBuild(arguments);
    EXPECT_FALSE(fs::exists(fullPath("bank.h"))) << "another file was set";
    const auto first = nodes();
    mustBuild(arguments);
    EXPECT_EQ(nodes(), first);

    arguments.quality = 49; // only the bank changes
    arguments.format = TARNOK_FORMAT_VORBIS;
    mustBuild(arguments);
    const auto second = nodes();
    EXPECT_NE(second.first, first.first);
    EXPECT_EQ(second.second, first.second);

    const Bytes whole = readFile(arguments.output);
    for (size_t damaged : {size_t(0), whole.size() / 2, whole.size() - 1}) {
        Bytes bytes = whole;
        bytes[damaged] ^= 1;
        writeFile(arguments.output, bytes);
        mustBuild(arguments);
        EXPECT_EQ(readFile(arguments.output), whole) << "a byte was changed at " << damaged;
    }
    writeFile(arguments.output, Bytes(whole.begin(), whole.end() - 1));
    EXPECT_EQ(mustBuild(arguments).bank, whole);
    ASSERT_EQ(Tarnok_SetHeaderFile(nullptr), TARNOK_OK);
    arguments.initFlags &= ~TARNOK_INIT_KEEP_UNCHANGED;
    const auto third = nodes();
    mustBuild(arguments);
    EXPECT_NE(nodes().first, third.first);
    EXPECT_TRUE(fs::exists(fullPath("bank.h")));
}

TEST_F(Output, RemovesWhatKilledBuildsLeft)
{
    const BuildArguments arguments = makeArguments(makeSounds(1));
    for (const char* folder : {"cache/incomplete", "cache/index"})
        fs::create_directory(fullPath(folder));
    for (const char* left : {".bank.tnb.4000000.0.tmp", ".bank.h.4000000.1.tmp",
                             "cache/incomplete/.sound.4000000.2.tmp", "cache/index/.index.4000000.3.tmp"})
        writeFile(fullPath(left), "half");
    const std::string another = fullPath(".another.h.4000000.1.tmp");
    writeFile(another, "half");
    // They belong to a process with our number on another machine, which is still writing them.
    std::vector<int> inUse;
    for (int i = 0; i < 400; ++i) {
        const std::string path = fullPath(".bank.tnb." + std::to_string(getpid()) + "." + std::to_string(i) + ".tmp");
        inUse.push_back(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
        ASSERT_EQ(flock(inUse.back(), LOCK_EX), 0);
    }
    mustBuild(arguments);
    EXPECT_EQ(leftovers().size(), 1 + inUse.size());
    for (const int file : inUse)
        close(file);
    mustBuild(arguments);
    EXPECT_EQ(leftovers(), std::vector{another});
    fs::remove(another);
}

TEST_F(Output, HeaderCompilesAsC89AndListsNamesAndIndices)
{
    const std::vector<std::string> names = {"kick",  "Kick",    "kick 2",      "kick_2", "kick_2_2",    "_",
                                            "10saw", "a\"b\\c", "what?\?/now", "größe",  "kick",        "*/ x",
                                            "if",    "COUNT",   "names",       "tab\t",  "\xe9\xbc\x93"};
    BuildArguments arguments = makeArguments({});
    for (const std::string& name : names) {
        // The name is the last part of the path, which two sounds may share.
        const std::string file = fullPath(std::to_string(arguments.sounds.size()) + "/" + name + ".wav");
        fs::create_directories(fs::path(file).parent_path());
        arguments.sounds.push_back({writeSound(file, wav16, sine(1, 44100, 100))});
    }
    arguments.output = fullPath("2nd bänk-file.tnb");
    arguments.initFlags |= TARNOK_INIT_CREATE_HEADER;
    mustBuild(arguments);
    const std::vector<uint8_t> bytes = readFile(fullPath("2nd bänk-file.h"));
    const std::string header(bytes.begin(), bytes.end());

    std::string program =
        "#include <stdio.h>\n#include \"2nd bänk-file.h\"\n#include \"2nd bänk-file.h\"\nint main(void)\n{\n";
    std::istringstream words(header);
    for (std::string word; words >> word;) {
        if (word.starts_with("BANK_2ND_B__NK_FILE_SOUND_"))
            program += "printf(\"%d %s\\n\", " + word + ", bank_2nd_b__nk_file_names[" + word + "]);\n";
    }
    writeFile(fullPath("print.c"), program + "printf(\"%d\\n\", BANK_2ND_B__NK_FILE_COUNT);\nreturn 0;\n}\n");
    EXPECT_EQ(runCommand(std::string(C_COMPILER) + " -std=c89 -pedantic-errors -Wall -Wextra -Werror -o '"
                         + fullPath("print") + "' '" + fullPath("print.c") + "'"),
              "");
    std::string expected;
    for (const DecodedSound& sound : readSounds(arguments.output))
        expected += std::to_string(std::count(expected.begin(), expected.end(), '\n')) + " " + sound.name + "\n";
    EXPECT_EQ(runCommand("'" + fullPath("print") + "'"), expected + std::to_string(names.size()) + "\n");
    EXPECT_NE(header.find("#define BANK_2ND_B__NK_FILE_SOUND_KICK 0\n"), std::string::npos);
}
