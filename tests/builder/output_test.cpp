// The bank and its C header as files.
#include "workshop.hpp"

#include <cerrno>
#include <cstdlib>
#include <sstream>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace test;
using Output = Workshop;

namespace {

std::atomic<bool> diskFails = false;

std::string outputOf(const std::string& command)
{
    EXPECT_EQ(std::system((command + " >output 2>&1").c_str()), 0) << command;
    const std::vector<uint8_t> text = readFile("output");
    return {text.begin(), text.end()};
}

} // namespace

// In place of the system's: of what a disk couldn't take, the first who waits for it is told.
extern "C" __attribute__((visibility("default"))) int sync_file_range(int, off64_t, off64_t, unsigned flags)
{
    errno = EIO;
    return diskFails && (flags & SYNC_FILE_RANGE_WAIT_AFTER) ? -1 : 0;
}

TEST_F(Output, ReplacesTheFormerBankOnlyWhenTheNewOneIsComplete)
{
    Order order = orderOf(makeSounds(2));
    order.sounds.pop_back();
    order.initFlags |= TARNOK_INIT_CREATE_HEADER;
    const Bytes former = mustBuild(order).bank;
    const Bytes formerHeader = readFile(pathOf("bank.h"));

    order.sounds.push_back({pathOf("missing.wav")});
    EXPECT_EQ(build(order).result, TARNOK_ERR_FILE_NOT_FOUND);
    order.sounds.back() = {makeSound("long.wav", noise(2, 44100, 1'300'000))};
    diskFails = true;
    EXPECT_TRUE(build(order).failed(TARNOK_ERR_FILE_OS, "the disk reported an error while writing bank.tnb"));
    diskFails = false;
    EXPECT_EQ(readFile(order.output), former);
    EXPECT_EQ(readFile(pathOf("bank.h")), formerHeader);

    order.sounds.back() = {pathOf("sound1.flac")};
    mustBuild(order);
    EXPECT_EQ(hear(order.output).at(1).name, "sound1");
    EXPECT_NE(readFile(pathOf("bank.h")), formerHeader);

    order.initFlags = TARNOK_INIT_ALWAYS;
    order.flags = TARNOK_BUILD_TNB5_DONTWRITENAMES;
    order.key = "Gänsemarsch";
    fs::remove(pathOf("bank.h"));
    mustBuild(order);
    EXPECT_FALSE(fs::exists(pathOf("bank.h"))) << "not wanted";
    EXPECT_TRUE(hear(order.output, "Gansemarsch").empty());
    EXPECT_EQ(hear(order.output, order.key).at(1).name, "");
}

TEST_F(Output, FollowsLinksAndRefusesWhatIsNoFile)
{
    Order order = orderOf(makeSounds(1));
    fs::create_directory(pathOf("elsewhere"));
    writeFile(pathOf("elsewhere/real.tnb"), "the bank before");
    fs::create_symlink("elsewhere/real.tnb", pathOf("link.tnb"));
    order.output = pathOf("link.tnb");
    mustBuild(order);
    EXPECT_TRUE(fs::is_symlink(order.output));
    EXPECT_EQ(hear(pathOf("elsewhere/real.tnb")).size(), 1u);

    order.initFlags |= TARNOK_INIT_CREATE_HEADER;
    for (const char* pipe : {"pipe", "piped.h"})
        ASSERT_EQ(mkfifo(pathOf(pipe).c_str(), 0666), 0);
    const std::pair<std::string, const char*> refused[] = {
        {pathOf("elsewhere"), "elsewhere"},
        {pathOf("pipe"), "pipe"},
        {pathOf("nowhere/bank.tnb"), "nowhere"},
        {pathOf("sound0.wav/deep/bank.tnb"), "sound0.wav is a file, not a folder"},
        {pathOf(std::string(300, 'x')), "too long"},
        {"/proc/bank.tnb", "/proc"},
        {pathOf("piped.tnb"), "piped.h: this is a device or pipe"}};
    for (const auto& [path, text] : refused) {
        order.output = path;
        const Outcome outcome = build(order);
        EXPECT_TRUE(outcome.failed(TARNOK_ERR_FILE_OS, text)) << path;
        EXPECT_EQ(outcome.statesOf(-1), std::vector{TARNOK_STATE_FAILED}) << path;
        EXPECT_EQ(outcome.countOf(TARNOK_STATE_DECODING), 0) << "told at once, not after hours";
    }
    order.output = pathOf("bank.h");
    EXPECT_EQ(build(order).result, TARNOK_ERR_INVALID_PARAM);
}

TEST_F(Output, KeepsThePermissionsOfTheFormerBank)
{
    Order order = orderOf(makeSounds(1));
    order.initFlags |= TARNOK_INIT_CREATE_HEADER;
    const auto modeOf = [](const std::string& path) {
        return unsigned(fs::status(path).permissions());
    };
    const mode_t former = umask(027);
    mustBuild(order);
    EXPECT_EQ(modeOf(order.output), 0640u) << "a new one";
    for (const auto& [mode, kept] :
         {std::pair<unsigned, unsigned>{0444, 0444}, {0600, 0600}, {0666, 0666}, {04755, 0755}}) {
        for (const std::string& path : {order.output, pathOf("bank.h")})
            fs::permissions(path, fs::perms(mode));
        mustBuild(order);
        EXPECT_EQ(modeOf(order.output), kept) << std::oct << mode;
        EXPECT_EQ(modeOf(pathOf("bank.h")), kept) << std::oct << mode;
    }
    umask(former);
}

TEST_F(Output, SweepsUpWhatKilledBuildsLeft)
{
    const Order order = orderOf(makeSounds(1));
    for (const char* folder : {"cache/incomplete", "cache/index"})
        fs::create_directory(pathOf(folder));
    for (const char* left : {".bank.tnb.4000000.0.tmp", ".bank.h.4000000.1.tmp",
                             "cache/incomplete/.sound.4000000.2.tmp", "cache/index/.index.4000000.3.tmp"})
        writeFile(pathOf(left), "half");
    const std::string another = pathOf(".another.h.4000000.1.tmp");
    writeFile(another, "half");
    // Of a process that has our number on another machine, and writes them still.
    std::vector<int> inUse;
    for (int i = 0; i < 400; ++i) {
        const std::string path = pathOf(".bank.tnb." + std::to_string(getpid()) + "." + std::to_string(i) + ".tmp");
        inUse.push_back(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
        ASSERT_EQ(flock(inUse.back(), LOCK_EX), 0);
    }
    mustBuild(order);
    EXPECT_EQ(leftovers().size(), 1 + inUse.size());
    for (const int file : inUse)
        close(file);
    mustBuild(order);
    EXPECT_EQ(leftovers(), std::vector{another});
    fs::remove(another);
}

TEST_F(Output, HeaderCompilesAsC89AndTellsNamesAndIndices)
{
    const std::vector<std::string> names = {"kick",  "Kick",    "kick 2",      "kick_2", "kick_2_2",    "_",
                                            "10saw", "a\"b\\c", "what?\?/now", "größe",  "kick",        "*/ x",
                                            "if",    "COUNT",   "names",       "tab\t",  "\xe9\xbc\x93"};
    Order order = orderOf({});
    for (const std::string& name : names) {
        // Of a path the last part is the name, which two sounds may share.
        const std::string file = pathOf(std::to_string(order.sounds.size()) + "/" + name + ".wav");
        fs::create_directories(fs::path(file).parent_path());
        order.sounds.push_back({writeSound(file, wav16, sine(1, 44100, 100))});
    }
    order.output = pathOf("2nd bänk-file.tnb");
    order.initFlags |= TARNOK_INIT_CREATE_HEADER;
    mustBuild(order);
    const std::vector<uint8_t> bytes = readFile(pathOf("2nd bänk-file.h"));
    const std::string header(bytes.begin(), bytes.end());

    std::string program =
        "#include <stdio.h>\n#include \"2nd bänk-file.h\"\n#include \"2nd bänk-file.h\"\nint main(void)\n{\n";
    std::istringstream words(header);
    for (std::string word; words >> word;) {
        if (word.starts_with("BANK_2ND_B__NK_FILE_SOUND_"))
            program += "printf(\"%d %s\\n\", " + word + ", bank_2nd_b__nk_file_names[" + word + "]);\n";
    }
    writeFile(pathOf("print.c"), program + "printf(\"%d\\n\", BANK_2ND_B__NK_FILE_COUNT);\nreturn 0;\n}\n");
    EXPECT_EQ(outputOf(std::string(C_COMPILER) + " -std=c89 -pedantic-errors -Wall -Wextra -Werror -o '"
                       + pathOf("print") + "' '" + pathOf("print.c") + "'"),
              "");
    std::string expected;
    for (const Heard& heard : hear(order.output))
        expected += std::to_string(std::count(expected.begin(), expected.end(), '\n')) + " " + heard.name + "\n";
    EXPECT_EQ(outputOf("'" + pathOf("print") + "'"), expected + std::to_string(names.size()) + "\n");
    EXPECT_NE(header.find("#define BANK_2ND_B__NK_FILE_SOUND_KICK 0\n"), std::string::npos);
}
