// SPDX-License-Identifier: MIT
#include "support/hostile_files.hpp"

#include "bank/checksum.hpp"
#include "support/bank_maker.hpp"

#include <ogg/ogg.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <utility>

namespace test {

namespace {

using namespace std::string_literals;

// Numbers of any width, the lowest bit first.
class BitWriter
{
public:
    BitWriter& add(uint64_t value, int bits)
    {
        for (int i = 0; i < bits; ++i, ++mCount) {
            if (mCount % 8 == 0)
                mBytes.push_back('\0');
            mBytes.back() = char(uint8_t(mBytes.back()) | (value >> i & 1) << mCount % 8);
        }
        return *this;
    }

    [[nodiscard]] const std::string& bytes() const { return mBytes; }

private:
    std::string mBytes;
    size_t mCount = 0;
};

std::string repeated(const std::string& start, const std::string& empty, size_t count)
{
    std::string file = start;
    for (size_t i = 0; i < count; ++i)
        file += empty;
    return file;
}

std::string bigEndian(uint64_t value, int bytes)
{
    std::string text;
    for (int i = bytes - 1; i >= 0; --i)
        text += char(value >> 8 * i);
    return text;
}

std::string smallEndian(uint64_t value, int bytes)
{
    std::string text = bigEndian(value, bytes);
    std::reverse(text.begin(), text.end());
    return text;
}

std::string bigEndian(std::initializer_list<uint32_t> numbers)
{
    std::string text;
    for (const uint32_t number : numbers)
        text += bigEndian(number, 4);
    return text;
}

// Codebooks whose code words all have the same length, in the form that needs no bits per entry.
struct Books
{
    int count;
    uint32_t dimensions;
    uint32_t entries; // a power of 2
    int lookup = 0;
    bool isOverfull = false; // more code words than can exist
};

void addBook(BitWriter& bits, const Books& book)
{
    const int wordBits = std::bit_width(book.entries) - (book.isOverfull ? 2 : 1);
    bits.add(0x564342, 24).add(book.dimensions, 16).add(book.entries, 24);
    bits.add(1, 1).add(uint64_t(std::max(wordBits, 1) - 1), 5).add(book.entries, std::bit_width(book.entries));
    bits.add(uint64_t(book.lookup), 4);
    if (book.lookup == 0)
        return;
    bits.add(0, 32).add(0, 32).add(0, 4).add(0, 1);
    uint64_t values = uint64_t{book.dimensions} * book.entries;
    if (book.lookup == 1) // with more dimensions than a code word has bits, there is only one value
        values = book.dimensions > 1 ? 1 : uint64_t{book.dimensions} * book.entries;
    for (uint64_t i = 0; i < values; ++i)
        bits.add(1, 1);
}

struct Setup
{
    std::vector<Books> books;
    int residues = 1;
    uint32_t classes = 1;
    uint32_t classBook = 0;
    uint32_t valueBook = 0;
};

std::string makeSetup(const Setup& setup)
{
    BitWriter bits;
    uint64_t count = 0;
    for (const Books& books : setup.books)
        count += uint64_t(books.count);
    bits.add(count - 1, 8);
    for (const Books& books : setup.books) {
        for (int i = 0; i < books.count; ++i)
            addBook(bits, books);
    }
    bits.add(0, 6).add(0, 16); // one unused time transform
    bits.add(0, 6).add(1, 16).add(0, 5).add(0, 2).add(4, 4); // one floor, of two posts
    bits.add(uint64_t(setup.residues - 1), 6);
    for (int i = 0; i < setup.residues; ++i) {
        bits.add(0, 16).add(0, 24).add(32, 24).add(31, 24);
        bits.add(setup.classes - 1, 6).add(setup.classBook, 8);
        bits.add(1, 3).add(0, 1).add(0, 4 * int(setup.classes - 1)).add(setup.valueBook, 8);
    }
    bits.add(0, 6).add(0, 16).add(0, 1).add(0, 1).add(0, 2).add(0, 8).add(0, 8).add(0, 8); // one mapping
    bits.add(0, 6).add(1, 1).add(0, 16).add(0, 16).add(0, 8); // one mode
    bits.add(1, 1);
    return "\5vorbis" + bits.bytes();
}

// One book, one floor, one residue.
const std::string kSimpleSetup = makeSetup({.books = {{1, 1, 2, 1}}});

std::string identification(int channels = 1)
{
    return "\1vorbis"s + littleEndian({0}) + char(channels) + littleEndian({44100, 0, 0, 0}) + "\x88\1"s;
}

std::string comments(uint32_t count = 0)
{
    return repeated("\3vorbis"s + littleEndian({0, count}), littleEndian({0}), count) + '\1';
}

// Valid packets: a floor that isn't silent, followed by the first code word again and again.
const std::string kSound = "\xfe\xff\x0f" + std::string(40, '\0');

// Packets in the pages of one logical stream.
class OggWriter
{
public:
    explicit OggWriter(int serial) { ogg_stream_init(&mStream, serial); }
    ~OggWriter() { ogg_stream_clear(&mStream); }

    std::string pages(const std::vector<std::string>& packets, bool isLast = true)
    {
        std::string file;
        for (size_t i = 0; i < packets.size(); ++i) {
            ogg_packet packet{};
            packet.packet = reinterpret_cast<unsigned char*>(const_cast<char*>(packets[i].data()));
            packet.bytes = long(packets[i].size());
            packet.b_o_s = mNumber == 0;
            packet.e_o_s = isLast && i + 1 == packets.size();
            packet.granulepos = packet.e_o_s ? 128 : 0;
            packet.packetno = mNumber++;
            ogg_stream_packetin(&mStream, &packet);
            ogg_page page;
            while (i != 1 && ogg_stream_flush(&mStream, &page) != 0) {
                file.append(reinterpret_cast<char*>(page.header), size_t(page.header_len));
                file.append(reinterpret_cast<char*>(page.body), size_t(page.body_len));
            }
        }
        return file;
    }

private:
    ogg_stream_state mStream{};
    int mNumber = 0;
};

std::string oggVorbis(const std::string& setup, int serial = 1, int sounds = 4, const std::string& comment = comments())
{
    std::vector<std::string> packets{identification(), comment, setup};
    packets.insert(packets.end(), size_t(sounds), kSound);
    return OggWriter(serial).pages(packets);
}

// Together with a stream that isn't sound, as in a video, so that FFmpeg's demuxer gets the file.
std::string multiplexed(const std::string& setup)
{
    OggWriter sound(1);
    OggWriter other(2);
    const std::string first = sound.pages({identification()}, false) + other.pages({"pictures"});
    return first + sound.pages({comments(), setup, kSound, kSound});
}

// A Matroska element, with its length in eight bytes.
std::string element(uint32_t id, const std::string& data)
{
    std::string name = bigEndian(id, 4);
    name.erase(0, name.find_first_not_of('\0'));
    return name + '\1' + bigEndian(data.size(), 7) + data;
}

std::string matroska(const std::string& codec, const std::string& configuration, int channels,
                     const std::vector<std::string>& packets)
{
    const std::string audio = element(
        0xe1, element(0xb5, bigEndian(0x40e5888000000000, 8)) + element(0x9f, bigEndian(uint64_t(channels), 1)));
    const std::string track = element(0xae,
                                      element(0xd7, "\1") + element(0x73c5, "\1") + element(0x83, "\2")
                                          + element(0x86, codec) + element(0x63a2, configuration) + audio);
    std::string cluster = element(0xe7, "\0"s);
    for (const std::string& packet : packets)
        cluster += element(0xa3, "\x81\0\0\x80"s + packet);
    return element(0x1a45dfa3, element(0x4282, "matroska") + element(0x4287, "\4") + element(0x4285, "\2"))
        + element(0x18538067,
                  element(0x1549a966, element(0x2ad7b1, bigEndian(1'000'000, 4))) + element(0x1654ae6b, track)
                      + element(0x1f43b675, cluster));
}

// The three headers, preceded by the lengths of the first two.
std::string laced(const std::string& setup)
{
    const std::string first = identification();
    const std::string second = comments();
    return '\2' + std::string(1, char(first.size())) + char(second.size()) + first + second + setup;
}

// A WAV file whose samples FFmpeg reads as packets of Vorbis. Each of its packets contains a hundred of ours.
std::string vorbisWav(const std::string& setup)
{
    const std::string extra = laced(setup);
    const std::string format = smallEndian(0x566f, 2) + smallEndian(1, 2) + littleEndian({44100, 10000})
        + smallEndian(kSound.size(), 2) + smallEndian(0, 2) + smallEndian(extra.size(), 2) + extra;
    return chunk("RIFF", "WAVE" + chunk("fmt ", format) + chunk("data", repeated("", kSound, 300)));
}

// A bank of one sound, with right checksums.
std::string makeHostileBank(bank::Codec codec, uint8_t channels, const std::string& setup, const std::string& data)
{
    bank::Sound sound;
    sound.codec = codec;
    sound.sampleFormat = bank::SampleFormat::Pcm16;
    sound.channels = channels;
    sound.sampleRate = codec == bank::Codec::Opus ? 48000 : 44100;
    sound.sampleCount = 100;
    sound.quality = 50;
    sound.setup.assign(setup.begin(), setup.end());
    sound.dataBytes = data.size();
    sound.dataChecksum = bank::checksum({reinterpret_cast<const uint8_t*>(data.data()), data.size()});
    const std::vector<uint8_t> bytes =
        bank_test::makeBank({{"hostile", sound, {data.begin(), data.end()}}}, {.format = codec});
    return {bytes.begin(), bytes.end()};
}

std::string makeChain(int links, const std::vector<std::string>& setups)
{
    std::string file;
    for (int i = 0; i < links; ++i)
        file += oggVorbis(setups[size_t(i) % setups.size()], i + 1, 3);
    return file;
}

// The largest header that is accepted, made unique by a number.
std::string heavyButAllowed(uint32_t number)
{
    return makeSetup({.books = {{1, 1, 2, 1}, {3, 7, 65536}, {1, 1 + number, 1}}});
}

std::string box(const std::string& name, const std::string& data)
{
    return bigEndian(data.size() + 8, 4) + name + data;
}

// MPEG-4 tracks with packets of one byte, all in one chunk of the file.
std::string mp4(int tracks, uint32_t packets, const std::string& entry)
{
    std::string movie = box("mvhd", std::string(12, '\0') + bigEndian(1000, 4) + std::string(84, '\0'));
    for (int track = 1; track <= tracks; ++track) {
        const std::string table = box("stsd", bigEndian({0, 1}) + entry) + box("stts", bigEndian({0, 1, packets, 1024}))
            + box("stsc", bigEndian({0, 1, 1, packets, 1})) + box("stsz", bigEndian({0, 1, packets}))
            + box("stco", bigEndian({0, 1, 32}));
        const std::string media = box("mdhd", bigEndian({0, 0, 0, 44100, packets, 0}))
            + box("hdlr", std::string(8, '\0') + "soun" + std::string(13, '\0')) + box("minf", box("stbl", table));
        movie += box("trak",
                     box("tkhd", bigEndian({7, 0, 0, uint32_t(track)}) + std::string(68, '\0')) + box("mdia", media));
    }
    return box("ftyp", "M4A \0\0\0\0"s) + box("moov", movie);
}

std::string soundEntry(const std::string& codec, int channels, const std::string& more)
{
    return box(codec,
               std::string(7, '\0') + '\1' + std::string(8, '\0') + bigEndian(uint64_t(channels), 2) + bigEndian(16, 2)
                   + std::string(4, '\0') + bigEndian(44100u << 16, 4) + more);
}

std::string alacEntry(uint32_t frames)
{
    const std::string configuration = bigEndian({frames}) + "\0\x10\x28\x0a\x0e\2\0\xff"s + bigEndian({0, 0, 44100});
    return soundEntry("alac", 2, box("alac", bigEndian(0, 4) + configuration));
}

std::string opusHead(int channels, int streams, int coupled)
{
    std::string head = "OpusHead\1"s + char(channels) + smallEndian(0, 2) + littleEndian({48000}) + "\0\0"s;
    head += "\xff"s + char(streams) + char(coupled) + std::string(size_t(channels), '\0');
    return head;
}

const std::string kMonoHead = "OpusHead\1\1\0\0\x80\xbb\0\0\0\0\0"s;

std::string opusFile(const std::string& head, uint32_t comments, int serial = 1)
{
    const std::string tags = repeated("OpusTags" + littleEndian({0, comments}), littleEndian({0}), comments);
    OggWriter sound(serial);
    std::string file;
    for (const std::string& packet : {head, tags}) // one per page, as opusfile requires
        file += sound.pages({packet}, false);
    return file + sound.pages({"\xf8\xff\xfe"});
}

// The second link has this many streams, with their first pages at its start.
std::string opusAmongStreams(int streams)
{
    OggWriter sound(2);
    std::string file = opusFile(kMonoHead, 0) + sound.pages({kMonoHead}, false);
    for (int i = 0; i < streams; ++i)
        file += OggWriter(i + 3).pages({"x"});
    file += sound.pages({"OpusTags" + littleEndian({0, 0})}, false);
    return file + sound.pages({"\xf8\xff\xfe"});
}

// Headers of missing pages. In each of them, the following headers are read as lengths, which sum to 60,000 bytes.
std::string pagesInPages(size_t count)
{
    return repeated("", "OggS" + std::string(24, '\xff'), count);
}

std::string mpegWav(const std::string& frames)
{
    const std::string format = smallEndian(0x55, 2) + smallEndian(1, 2) + littleEndian({24000, 1000, 1});
    return chunk("RIFF", "WAVE" + chunk("fmt ", format) + chunk("data", frames));
}

// Frames with headers of free format between them, which have no matching header in the 3,456 bytes after them.
std::string freeFormatsBetweenFrames()
{
    const std::string frame = "\xff\xf3\x14\xc0" + std::string(20, '\0');
    std::vector<std::string> headers;
    for (int i = 0; i < 108; ++i) {
        constexpr int kVersions[] = {0xe0, 0xf0, 0xf8};
        const int layer = 2 + i / 12 % 3 * 2;
        headers.push_back("\xff"s + char(kVersions[i / 36] | layer | 1) + char(i / 4 % 3 * 4) + char(i % 4 << 6));
    }
    std::string file = repeated("", frame, 6);
    for (size_t i = 0; i < 105 * 1000; ++i) {
        file += headers[i % 105];
        if (i % 5 == 4)
            file += repeated("", frame, 7);
    }
    return file;
}

std::string speexFile(const std::string& vendorAndComments)
{
    const std::string head = "Speex   1.2" + std::string(17, '\0') + littleEndian({1, 80, 16000, 1, 4, 1})
        + littleEndian({~0u, 320, 0, 1, 0, 0, 0});
    return OggWriter(1).pages({head, vendorAndComments, std::string(42, 'x'), std::string(42, 'x')});
}

std::string distinctComments(uint32_t count)
{
    std::string text = littleEndian({0, count});
    for (uint32_t i = 0; i < count; ++i) {
        const std::string comment = std::to_string(i) + "=1";
        text += littleEndian({uint32_t(comment.size())}) + comment;
    }
    return text;
}

std::string flacFile(int type, const std::string& block, size_t declared, int blocks)
{
    const std::string info = "\x10\0\x10\0\0\0\0\0\0\0"s + "\x0a\xc4\x42\xf0"s + std::string(20, '\0');
    std::string file = "fLaC\0"s + bigEndian(info.size(), 3) + info;
    for (int i = 0; i < blocks; ++i)
        file += char(type) + bigEndian(declared, 3) + block;
    return file;
}

void addInEachContainer(const std::string& name, const std::string& setup, std::vector<HostileFile>& files)
{
    files.push_back({name + ".ogg", oggVorbis(setup)});
    files.push_back({name + " in a chain.ogg", oggVorbis(kSimpleSetup) + oggVorbis(setup, 2)});
    files.push_back({name + " beside a video.ogg", multiplexed(setup)});
    files.push_back({name + ".mka", matroska("A_VORBIS", laced(setup), 1, {kSound, kSound})});
    files.push_back({name + " among the packets.mka",
                     matroska("A_VORBIS", laced(kSimpleSetup), 1, {kSound, identification(), setup, kSound, kSound})});
    files.push_back({name + ".wav", vorbisWav(setup)});
}

} // namespace

std::vector<HostileFile> hostileVorbisSetups()
{
    const auto setup = [](std::vector<Books> books, int residues = 1, uint32_t classes = 1, uint32_t classBook = 0,
                          uint32_t valueBook = 0) {
        return makeSetup({std::move(books), residues, classes, classBook, valueBook});
    };
    return {
        {"a book of 2^20 entries", setup({{1, 1, 2, 1}, {1, 1, 1 << 20}})},
        {"256 books of 2^19 entries", setup({{1, 1, 2, 1}, {255, 1, 1 << 19}})},
        {"256 books of the largest size", setup({{1, 1, 2, 1}, {255, 1, 65536}})},
        {"256 books of short vectors", setup({{1, 1, 2, 1}, {255, 16, 1 << 14, 1}})},
        {"four books of vectors", setup({{1, 1, 2, 1}, {3, 127, 65536, 1}})},
        {"256 books of long vectors", setup({{1, 1, 2, 1}, {255, 65535, 128, 1}})},
        {"a book of no dimension on a lattice", setup({{1, 1, 2, 1}, {1, 0, 1, 1}})},
        {"a book of no dimension with a list", setup({{1, 1, 2, 1}, {1, 0, 1, 2}}, 1, 1, 0, 1)},
        {"64 residues of 2^16 class words", setup({{1, 1, 2, 1}, {1, 16, 65536}}, 64, 2, 1, 0)},
        {"a book with too many words", setup({{1, 1, 4, 1, true}, {1, 1, 2, 1}}, 1, 1, 1, 1)},
    };
}

std::vector<HostileFile> plainFiles()
{
    std::vector<HostileFile> files;
    addInEachContainer("plain", kSimpleSetup, files);
    files.push_back({"large.ogg", oggVorbis(heavyButAllowed(0))});
    files.push_back({"plain.opus", opusFile(kMonoHead, 1000) + opusAmongStreams(10)});
    files.push_back({"free format.wav", mpegWav(repeated("", "\xff\xf3\x04\xc0" + std::string(26, '\0'), 40))});
    return files;
}

std::vector<HostileFile> hostileVorbisFiles()
{
    std::vector<HostileFile> files;
    for (const auto& [name, setup] : hostileVorbisSetups())
        addInEachContainer(name, setup, files);
    std::vector<std::string> heavy;
    for (uint32_t i = 0; i < 4096; ++i)
        heavy.push_back(heavyButAllowed(i));
    files.push_back({"4096 different headers.ogg", makeChain(4096, heavy)});
    files.push_back({"4096 equal headers.ogg", makeChain(4096, {heavy[0]})});
    return files;
}

std::vector<HostileFile> hostileBanks()
{
    const auto part = [](const std::string& bytes) {
        return littleEndian({uint32_t(bytes.size())}) + bytes;
    };
    std::vector<HostileFile> files;
    const std::string data = char(kSound.size()) + kSound + char(kSound.size()) + kSound;
    for (const auto& [name, setup] : hostileVorbisSetups())
        files.push_back(
            {name + ".tnb", makeHostileBank(bank::Codec::Vorbis, 1, part(identification()) + part(setup), data)});
    files.push_back({"255 channels.tnb",
                     makeHostileBank(bank::Codec::Vorbis, 1, part(identification(255)) + part(kSimpleSetup), data)});
    files.push_back({"255 streams.tnb", makeHostileBank(bank::Codec::Opus, 1, "\xff\0\0"s, "\3\xf8\xff\xfe")});
    return files;
}

std::vector<HostileFile> hostileHeaders()
{
    const std::string noSound(20, '\0');
    std::vector<HostileFile> files{
        {"a million comments.ogg", oggVorbis(kSimpleSetup, 1, 4, comments(1'000'000))},
        {"a million comments.opus", opusFile(kMonoHead, 1'000'000)},
        {"3.9 million comments of the second link.opus", opusFile(kMonoHead, 0) + opusFile(kMonoHead, 3'900'000, 2)},
        {"200,000 streams in the second link.opus", opusAmongStreams(200'000)},
        {"pages in pages.opus", opusFile(kMonoHead, 0) + pagesInPages(100'000) + opusFile(kMonoHead, 0, 2)},
        {"pages in pages.ogg", oggVorbis(kSimpleSetup) + pagesInPages(100'000) + oggVorbis(kSimpleSetup, 2)},
        {"pages in pages beside a video.ogg", multiplexed(kSimpleSetup) + pagesInPages(100'000)},
        {"200,000 different comments.spx", speexFile(distinctComments(200'000))},
        {"255 streams.opus", opusFile(opusHead(1, 255, 0), 0)},
        {"255 channels.opus", opusFile(opusHead(255, 255, 0), 0)},
        {"255 streams.webm", matroska("A_OPUS", opusHead(1, 255, 0), 1, {"\xf8\xff\xfe"})},
        {"255 channels.webm", matroska("A_OPUS", opusHead(255, 128, 127), 255, {"\xf8\xff\xfe"})},
        {"255 channels of Vorbis.mka",
         matroska("A_VORBIS",
                  '\2' + std::string(1, char(30)) + char(16) + identification(255) + comments() + kSimpleSetup, 1,
                  {kSound})},
        {"a picture that isn't there.flac", flacFile(6, "", 0xffffff, 40)},
        {"seek points that aren't there.flac", flacFile(3, "", 0xffffff, 40)},
        {"comments of nothing.flac",
         flacFile(4, littleEndian({0, 4'000'000}) + std::string(16'000'000, '\0'), 16'000'008, 1)},
        {"a million blocks.flac", flacFile(2, "tool", 4, 1'000'000)},
        {"10 million packets.m4a", mp4(1, 10'000'000, soundEntry("alaw", 1, ""))},
        {"64 tracks of 5 million packets.m4a", mp4(64, 5'000'000, soundEntry("alaw", 1, ""))},
        {"16 million samples in a packet.m4a", mp4(1, 4, alacEntry(1 << 24))},
        {"free formats between frames.mp3", freeFormatsBetweenFrames()},
        {"free formats between frames.wav", mpegWav(freeFormatsBetweenFrames())},
        {"a tag of 256 MB.mp3", "ID3\4\0\0\x7f\x7f\x7f\x7f"s + noSound},
        {"chunks of nothing.wav", repeated("RIFF\xff\xff\xff\xffWAVE"s, "none\0\0\0\0"s, 500'000)},
        {"chunks of nothing.aiff", repeated("FORM\177\377\377\377AIFF"s, "none\0\0\0\0"s, 500'000)},
        {"chunks of nothing.caf", repeated("caff\0\1\0\0"s, "none\0\0\0\0\0\0\0\0"s, 500'000)},
        {"blocks of nothing.voc", repeated("Creative Voice File\x1a\x1a\0\x0a\1\x29\x11"s, "\5\0\0\0"s, 500'000)},
        {"sizes of nothing.nist", repeated("NIST_1A\n   1024\n", "a -i 1\n", 500'000)},
        {"chunks of nothing.8svx", repeated("FORM\177\377\377\3778SVX"s, "none\0\0\0\0"s, 500'000)},
        {"samples of nothing.tta",
         "TTA1\1\0\1\0\x10\0"s + littleEndian({44100, 0xfffffff0, 0}) + std::string(1000, '\0')},
        {"frames of nothing.ape",
         "MAC "s + smallEndian(3990, 2) + smallEndian(0, 2) + littleEndian({52, 24, 0xfffffff0u, 44, 0, 0, 0})
             + std::string(16, '\0') + smallEndian(2000, 2) + smallEndian(0, 2)
             + littleEndian({1, 1, 0xfffffff, 0x100010, 44100}) + std::string(1000, '\0')},
    };
    const std::string description =
        "desc" + bigEndian({0, 32, 0x40e58880, 0}) + "alac" + bigEndian({0, 0, 4096, 2, 16});
    files.push_back({"chunks of nothing after the format.caf",
                     repeated("caff\0\1\0\0"s + description, "none\0\0\0\0\0\0\0\0"s, 500'000)});
    files.push_back({"a table of 2^60 packets.caf",
                     "caff\0\1\0\0"s + description + "pakt" + bigEndian({1 << 28, 0, 1 << 28, 0}) + noSound});
    return files;
}

} // namespace test
