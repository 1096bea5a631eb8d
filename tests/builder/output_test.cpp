// The bank and its C header as files.
#include "workshop.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include <sys/stat.h>

using namespace test;
namespace fs = std::filesystem;

namespace {

std::string outputOf(const std::string& command)
{
    EXPECT_EQ(std::system((command + " >output 2>&1").c_str()), 0) << command;
    const std::vector<uint8_t> text = readFile("output");
    return {text.begin(), text.end()};
}

} // namespace

TEST(Output, ReplacesTheFormerBankOnlyWhenTheNewOneIsComplete)
{
    const Workshop workshop;
    Order former = workshop.order(workshop.makeSounds(1));
    former.initFlags |= TARNOK_INIT_CREATE_HEADER;
    ASSERT_EQ(build(former).result, TARNOK_OK);
    const auto formerHeader = readFile(workshop.path("bank.h"));

    Order order = workshop.order(workshop.makeSounds(2));
    order.initFlags |= TARNOK_INIT_CREATE_HEADER;
    writeFile(order.output, std::string("the bank before"));
    Order failing = order;
    failing.sounds.push_back({workshop.path("missing.wav")});
    EXPECT_EQ(build(failing).result, TARNOK_ERR_FILE_NOT_FOUND);
    EXPECT_EQ(readFile(order.output).size(), 15u);
    EXPECT_EQ(readFile(workshop.path("bank.h")), formerHeader);

    EXPECT_EQ(build(order).result, TARNOK_OK);
    EXPECT_EQ(hear(order.output).at(1).name, "sound1");
    EXPECT_NE(readFile(workshop.path("bank.h")), formerHeader);

    order.initFlags = TARNOK_INIT_ALWAYS;
    order.flags = TARNOK_BUILD_TNB5_DONTWRITENAMES;
    order.key = "Gänsemarsch";
    fs::remove(workshop.path("bank.h"));
    EXPECT_EQ(build(order).result, TARNOK_OK);
    EXPECT_FALSE(fs::exists(workshop.path("bank.h"))) << "not wanted";
    EXPECT_TRUE(hear(order.output, "Gansemarsch").empty());
    EXPECT_EQ(hear(order.output, order.key).at(1).name, "");
    EXPECT_EQ(workshop.leftovers(), std::vector<std::string>());
}

TEST(Output, FollowsLinksAndRefusesWhatIsNoFile)
{
    const Workshop workshop;
    Order order = workshop.order(workshop.makeSounds(1));
    fs::create_directory(workshop.path("elsewhere"));
    writeFile(workshop.path("elsewhere/real.tnb"), std::string("the bank before"));
    fs::create_symlink("elsewhere/real.tnb", workshop.path("link.tnb"));
    order.output = workshop.path("link.tnb");
    EXPECT_EQ(build(order).result, TARNOK_OK);
    EXPECT_TRUE(fs::is_symlink(order.output));
    EXPECT_EQ(hear(workshop.path("elsewhere/real.tnb")).size(), 1u);

    ASSERT_EQ(mkfifo(workshop.path("pipe").c_str(), 0666), 0);
    const std::pair<std::string, const char*> refused[] = {
        {workshop.path("elsewhere"), "elsewhere"},
        {workshop.path("pipe"), "pipe"},
        {workshop.path("nowhere/bank.tnb"), "nowhere"},
        {workshop.path("sound0.wav/deep/bank.tnb"), "sound0.wav is a file, not a folder"},
        {workshop.path(std::string(300, 'x')), "too long"},
        {"/proc/bank.tnb", "/proc"}};
    for (const auto& [path, text] : refused) {
        order.output = path;
        const Outcome outcome = build(order);
        EXPECT_EQ(outcome.result, TARNOK_ERR_FILE_OS) << path;
        EXPECT_EQ(outcome.statesOf(-1), std::vector{TARNOK_STATE_FAILED}) << path;
        EXPECT_NE(outcome.texts().find(text), std::string::npos) << outcome.texts();
        EXPECT_EQ(outcome.countOf(TARNOK_STATE_DECODING), 0) << "told at once, not after hours";
    }
    order.initFlags |= TARNOK_INIT_CREATE_HEADER;
    order.output = workshop.path("piped.tnb");
    ASSERT_EQ(mkfifo(workshop.path("piped.h").c_str(), 0666), 0);
    EXPECT_NE(build(order).texts().find("piped.h: this is a device or pipe"), std::string::npos);
    order.output = workshop.path("bank.h");
    EXPECT_EQ(build(order).result, TARNOK_ERR_INVALID_PARAM);
    EXPECT_EQ(workshop.leftovers(), std::vector<std::string>());
}

TEST(Output, KeepsThePermissionsOfTheFormerBank)
{
    const Workshop workshop;
    Order order = workshop.order(workshop.makeSounds(1));
    order.initFlags |= TARNOK_INIT_CREATE_HEADER;
    const auto modeOf = [](const std::string& path) {
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        return status.st_mode & 07777;
    };
    const mode_t former = umask(027);
    EXPECT_EQ(build(order).result, TARNOK_OK);
    EXPECT_EQ(modeOf(order.output), 0640u) << "a new one";
    for (const auto& [mode, kept] :
         {std::pair<mode_t, mode_t>{0444, 0444}, {0600, 0600}, {0666, 0666}, {04755, 0755}}) {
        for (const std::string& path : {order.output, workshop.path("bank.h")})
            ASSERT_EQ(chmod(path.c_str(), mode), 0);
        EXPECT_EQ(build(order).result, TARNOK_OK);
        EXPECT_EQ(modeOf(order.output), kept) << std::oct << mode;
        EXPECT_EQ(modeOf(workshop.path("bank.h")), kept) << std::oct << mode;
    }
    umask(former);
}

TEST(Output, SweepsUpWhatKilledBuildsLeft)
{
    const Workshop workshop;
    const Order order = workshop.order(workshop.makeSounds(1));
    for (const char* folder : {"cache/incomplete", "cache/index"})
        fs::create_directory(workshop.path(folder));
    for (const char* left : {".bank.tnb.4000000.0.tmp", ".bank.h.4000000.1.tmp",
                             "cache/incomplete/.sound.4000000.2.tmp", "cache/index/.index.4000000.3.tmp"})
        writeFile(workshop.path(left), std::string("half"));
    const std::string another = workshop.path(".another.h.4000000.1.tmp");
    writeFile(another, std::string("half"));
    EXPECT_EQ(build(order).result, TARNOK_OK);
    EXPECT_EQ(workshop.leftovers(), std::vector{another});
}

TEST(Output, HeaderCompilesAsC89AndTellsNamesAndIndices)
{
    const Workshop workshop;
    const std::vector<std::string> names = {"kick",  "Kick",    "kick 2",      "kick_2", "kick_2_2",    "_",
                                            "10saw", "a\"b\\c", "what?\?/now", "größe",  "kick",        "*/ x",
                                            "if",    "COUNT",   "names",       "tab\t",  "\xe9\xbc\x93"};
    Order order = workshop.order({});
    for (const std::string& name : names) {
        // Of a path the last part is the name, which two sounds may share.
        const std::string file = workshop.path(std::to_string(order.sounds.size()) + "/" + name + ".wav");
        fs::create_directories(fs::path(file).parent_path());
        order.sounds.push_back({writeSound(file, SF_FORMAT_WAV | SF_FORMAT_PCM_16, sine(1, 44100, 100))});
    }
    order.output = workshop.path("2nd bänk-file.tnb");
    order.initFlags |= TARNOK_INIT_CREATE_HEADER;
    ASSERT_EQ(build(order).result, TARNOK_OK);
    const std::vector<uint8_t> bytes = readFile(workshop.path("2nd bänk-file.h"));
    const std::string header(bytes.begin(), bytes.end());

    std::string program =
        "#include <stdio.h>\n#include \"2nd bänk-file.h\"\n#include \"2nd bänk-file.h\"\nint main(void)\n{\n";
    std::istringstream words(header);
    for (std::string word; words >> word;) {
        if (word.starts_with("BANK_2ND_B__NK_FILE_SOUND_"))
            program += "printf(\"%d %s\\n\", " + word + ", bank_2nd_b__nk_file_names[" + word + "]);\n";
    }
    writeFile(workshop.path("print.c"), program + "printf(\"%d\\n\", BANK_2ND_B__NK_FILE_COUNT);\nreturn 0;\n}\n");
    EXPECT_EQ(outputOf(std::string(C_COMPILER) + " -std=c89 -pedantic-errors -Wall -Wextra -Werror -o '"
                       + workshop.path("print") + "' '" + workshop.path("print.c") + "'"),
              "");
    std::string expected;
    for (const Heard& heard : hear(order.output))
        expected += std::to_string(std::count(expected.begin(), expected.end(), '\n')) + " " + heard.name + "\n";
    EXPECT_EQ(outputOf("'" + workshop.path("print") + "'"), expected + std::to_string(names.size()) + "\n");
    EXPECT_NE(header.find("#define BANK_2ND_B__NK_FILE_SOUND_KICK 0\n"), std::string::npos);
}
