// SPDX-License-Identifier: MIT
#include "parse/file_kind.hpp"

#include "parse/mpeg_frames.hpp"
#include "parse/ogg_packets.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <string>
#include <string_view>

namespace engine {

namespace {

using namespace std::string_view_literals;

// The start of a file, long enough for all signatures.
using Head = std::string_view;

// Bytes by which a kind of file is known.
struct Signature
{
    size_t offset;
    std::string_view bytes;
    size_t secondOffset; // the second signature must match, too
    std::string_view secondBytes;
    KESS_SOUND_TYPE type;
    Reader reader;
    const char* container;
};

constexpr auto kWav = KESS_SOUND_TYPE_WAV;
constexpr auto kOther = KESS_SOUND_TYPE_OTHER;

// The first 16 bytes of a W64 file and the GUID after its length (Sony Pictures Digital, Wave64).
constexpr auto kW64Riff = "riff\x2e\x91\xcf\x11\xa5\xd6\x28\xdb\x04\xc1\x00\x00"sv;
constexpr auto kW64Wave = "wave\xf3\xac\xd3\x11\x8c\xd1\x00\xc0\x4f\x8e\xdb\x8a"sv;
constexpr auto kAsfHeader = "\x30\x26\xb2\x75\x8e\x66\xcf\x11\xa6\xd9\x00\xaa\x00\x62\xce\x6c"sv;

constexpr Signature kSignatures[] = {
    {0, "\x89TNB\r\n\x1a\n"sv, 0, ""sv, KESS_SOUND_TYPE_TNB, Reader::Bank, nullptr},
    {0, "RIFF"sv, 8, "WAVE"sv, kWav, Reader::Sndfile, "wav"},
    {0, "RIFX"sv, 8, "WAVE"sv, kWav, Reader::Sndfile, "wav"},
    {0, "RF64"sv, 8, "WAVE"sv, kWav, Reader::Sndfile, "wav"},
    {0, "BW64"sv, 8, "WAVE"sv, kWav, Reader::Sndfile, "wav"},
    {0, kW64Riff, 24, kW64Wave, kWav, Reader::Sndfile, "w64"},
    {0, "FORM"sv, 8, "AIFF"sv, KESS_SOUND_TYPE_AIFF, Reader::Sndfile, "aiff"},
    {0, "FORM"sv, 8, "AIFC"sv, KESS_SOUND_TYPE_AIFF, Reader::Sndfile, "aiff"},
    {0, "fLaC"sv, 0, ""sv, KESS_SOUND_TYPE_FLAC, Reader::Sndfile, "flac"},
    {0, kAsfHeader, 0, ""sv, KESS_SOUND_TYPE_ASF, Reader::Module, "asf"},

    {0, "MThd"sv, 0, ""sv, KESS_SOUND_TYPE_MIDI, Reader::None, nullptr},
    {0, "RIFF"sv, 8, "RMID"sv, KESS_SOUND_TYPE_MIDI, Reader::None, nullptr},
    {0, "RIFF"sv, 8, "DLS "sv, KESS_SOUND_TYPE_DLS, Reader::None, nullptr},
    {0, "IMPM"sv, 0, ""sv, KESS_SOUND_TYPE_IT, Reader::None, nullptr},
    {0, "Extended Module: "sv, 0, ""sv, KESS_SOUND_TYPE_XM, Reader::None, nullptr},
    {44, "SCRM"sv, 29, "\x10"sv, KESS_SOUND_TYPE_S3M, Reader::None, nullptr},

    {4, "ftyp"sv, 0, ""sv, KESS_SOUND_TYPE_MP4, Reader::Module, "mov"},
    {4, "moov"sv, 0, "\0"sv, KESS_SOUND_TYPE_MP4, Reader::Module, "mov"},
    {4, "mdat"sv, 0, "\0"sv, KESS_SOUND_TYPE_MP4, Reader::Module, "mov"},
    {4, "wide"sv, 0, "\0\0\0\x08"sv, KESS_SOUND_TYPE_MP4, Reader::Module, "mov"},

    {0, ".snd"sv, 0, ""sv, kOther, Reader::Sndfile, "au"},
    {0, "dns."sv, 0, ""sv, kOther, Reader::Sndfile, nullptr},
    {0, "caff\0\1"sv, 0, ""sv, kOther, Reader::Sndfile, "caf"},
    {0, "Creative Voice File\x1a"sv, 0, ""sv, kOther, Reader::Sndfile, "voc"},
    {0, "FORM"sv, 8, "8SVX"sv, kOther, Reader::Sndfile, "iff"},
    {0, "FORM"sv, 8, "16SV"sv, kOther, Reader::Sndfile, nullptr},
    {0, "NIST_1A\n"sv, 0, ""sv, kOther, Reader::Sndfile, "nistsphere"},
    {0, "PVF1\n"sv, 0, ""sv, kOther, Reader::Sndfile, "pvf"},
    {0, "2BIT"sv, 0, ""sv, kOther, Reader::Sndfile, nullptr},
    {0, " paf"sv, 0, ""sv, kOther, Reader::Sndfile, nullptr},
    {0, "fap "sv, 0, ""sv, kOther, Reader::Sndfile, nullptr},
    {0, "\x64\xa3\x01\x00"sv, 0, ""sv, kOther, Reader::Sndfile, "ircam"},
    {0, "\x64\xa3\x02\x00"sv, 0, ""sv, kOther, Reader::Sndfile, "ircam"},
    {0, "\x64\xa3\x03\x00"sv, 0, ""sv, kOther, Reader::Sndfile, "ircam"},
    {0, "\x00\x01\xa3\x64"sv, 0, ""sv, kOther, Reader::Sndfile, "ircam"},
    {0, "\x00\x02\xa3\x64"sv, 0, ""sv, kOther, Reader::Sndfile, "ircam"},
    {0, "\x00\x03\xa3\x64"sv, 0, ""sv, kOther, Reader::Sndfile, "ircam"},
    {0, "Extended Instrument: "sv, 0, ""sv, kOther, Reader::Sndfile, nullptr},
    {0, "MATLAB 5.0 MAT-file"sv, 0, ""sv, kOther, Reader::Sndfile, nullptr},
    {0, "ALawSoundFile**"sv, 0, ""sv, kOther, Reader::Sndfile, nullptr},
    {0, "\xf0\x7e"sv, 3, "\x01"sv, kOther, Reader::Sndfile, nullptr},

    {0, "\x1a\x45\xdf\xa3"sv, 0, ""sv, kOther, Reader::Module, "matroska"},
    {0, "RIFF"sv, 8, "AVI "sv, kOther, Reader::Module, "avi"},
    {0, "wvpk"sv, 0, ""sv, kOther, Reader::Module, "wv"},
    {0, "TTA1"sv, 0, ""sv, kOther, Reader::Module, "tta"},
    {0, "MAC "sv, 0, ""sv, kOther, Reader::Module, "ape"},
    {0, "MPCK"sv, 0, ""sv, kOther, Reader::Module, "mpc8"},
    {0, "MP+"sv, 0, ""sv, kOther, Reader::Module, "mpc"},
    {0, "tBaK"sv, 0, ""sv, kOther, Reader::Module, "tak"},
    {0, "#!AMR"sv, 0, ""sv, kOther, Reader::Module, "amr"},
};

bool matches(Head head, size_t offset, std::string_view bytes)
{
    return head.size() >= offset && head.substr(offset, bytes.size()) == bytes;
}

const Signature* findSignature(Head head)
{
    for (const Signature& signature : kSignatures) {
        if (matches(head, signature.offset, signature.bytes)
            && matches(head, signature.secondOffset, signature.secondBytes))
            return &signature;
    }
    return nullptr;
}

// The trackers' marks for the number of channels, after the 31 sample records and the order list.
bool isMod(Head head)
{
    constexpr size_t kMarkOffset = 1080;
    if (head.size() < kMarkOffset + 4)
        return false;
    const std::string_view mark = head.substr(kMarkOffset, 4);
    for (std::string_view known :
         {"M.K."sv, "M!K!"sv, "M&K!"sv, "N.T."sv, "FLT4"sv, "FLT8"sv, "OCTA"sv, "OKTA"sv, "CD81"sv}) {
        if (mark == known)
            return true;
    }
    const auto digit = [&](size_t i) {
        return mark[i] >= '0' && mark[i] <= '9';
    };
    return (digit(0) && mark.substr(1) == "CHN"sv) || (digit(0) && digit(1) && mark.substr(2) == "CH"sv)
        || (digit(0) && digit(1) && mark.substr(2) == "CN"sv) || (mark.substr(0, 3) == "TDZ"sv && digit(3));
}

// M3U with its header line, PLS, ASX, WPL and XSPF. A plain list of paths has no signature and can't be
// distinguished from text.
bool isPlaylist(Head head)
{
    std::string text(head.substr(0, 1024));
    for (char& character : text)
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    std::string_view rest = text;
    if (rest.starts_with("\xef\xbb\xbf"))
        rest.remove_prefix(3);
    rest.remove_prefix(std::min(rest.find_first_not_of(" \t\r\n"), rest.size()));
    for (std::string_view start : {"#extm3u"sv, "[playlist]"sv, "<asx"sv, "<?wpl"sv}) {
        if (rest.starts_with(start))
            return true;
    }
    return rest.starts_with("<?xml"sv) && (rest.find("xspf.org/ns"sv) != rest.npos || rest.find("<asx"sv) != rest.npos);
}

base::Error unknownFormat()
{
    return {base::ErrorCode::Format, "its format is unknown"};
}

base::Result<> recogniseOgg(const InputFile& file, FileKind& kind)
{
    const std::vector<OggCodec> codecs = oggCodecs(file);
    const auto isSound = [](OggCodec codec) {
        return codec != OggCodec::Unknown;
    };
    if (codecs.empty())
        return base::Error{base::ErrorCode::Damaged, "its first page is damaged or cut"};
    if (std::none_of(codecs.begin(), codecs.end(), isSound))
        return base::Error{base::ErrorCode::Format, "it has no stream of a known codec"};
    kind.type = KESS_SOUND_TYPE_OGG;
    kind.container = "ogg";
    kind.reader = Reader::Module;
    if (codecs.size() == 1) {
        if (codecs[0] == OggCodec::Vorbis)
            kind.reader = Reader::Vorbis;
        else if (codecs[0] == OggCodec::Opus)
            kind.reader = Reader::Opus;
    }
    return {};
}

// Streams of bare frames have no signature but the frames.
base::Result<> recogniseFrames(const InputFile& file, FileKind& kind)
{
    // After a tag, frames are expected, possibly after some padding. Without a tag, hardly anything may precede them.
    constexpr size_t kSearchAfterTag = 65536;
    constexpr size_t kSearchAtStart = 2048;

    const uint64_t begin = skipLeadingTags(file, 0);
    const uint64_t end = endWithoutTrailingTags(file);
    kind.end = end;
    if (startsWithAdts(file, begin, end)) {
        kind.type = KESS_SOUND_TYPE_MP4;
        kind.reader = Reader::Module;
        kind.container = "aac";
        kind.begin = begin;
        return {};
    }
    const auto start = findMpegStart(file, begin, end, begin > 0 ? kSearchAfterTag : kSearchAtStart);
    if (!start)
        return unknownFormat();
    kind.type = KESS_SOUND_TYPE_MPEG;
    kind.reader = Reader::Mpeg;
    kind.begin = *start;
    return {};
}

base::Result<FileKind> recogniseKind(const InputFile& file)
{
    std::array<char, 2048> bytes;
    uint64_t begin = 0;
    Head head(bytes.data(), file.readAt(0, bytes.data(), bytes.size()));
    if (head.empty())
        return base::Error{base::ErrorCode::Damaged};
    if (head.starts_with("ID3"sv)) {
        // Some programs put a tag before containers that have one of their own.
        begin = skipLeadingTags(file, 0);
        head = Head(bytes.data(), file.readAt(begin, bytes.data(), bytes.size()));
    }

    FileKind kind;
    kind.begin = begin;
    kind.end = file.size();
    base::Result<> known;
    if (const Signature* signature = findSignature(head)) {
        kind.type = signature->type;
        kind.reader = signature->reader;
        kind.container = signature->container;
    } else if (head.starts_with("OggS\0"sv) && begin == 0) {
        known = recogniseOgg(file, kind);
    } else if (isPlaylist(head)) {
        kind.type = KESS_SOUND_TYPE_PLAYLIST;
    } else if (isMod(head)) {
        kind.type = KESS_SOUND_TYPE_MOD;
    } else {
        known = recogniseFrames(file, kind);
    }
    if (!known)
        return std::move(known.error());
    return kind;
}

bool consistsOfChunks(const InputFile& file, const FileKind& kind)
{
    std::array<char, 4> magic;
    return kind.type == KESS_SOUND_TYPE_WAV || kind.type == KESS_SOUND_TYPE_AIFF
        || (kind.reader == Reader::Sndfile && file.readAllAt(kind.begin, magic.data(), magic.size())
            && Head(magic.data(), magic.size()) == "FORM"sv);
}

} // namespace

base::Result<RecognisedFile> recognise(FilePointer file)
{
    base::Result<FileKind> kind = recogniseKind(*file);
    if (!kind)
        return std::move(kind.error());
    ChunkList chunks;
    if (consistsOfChunks(*file, *kind))
        chunks = ChunkList(file, kind->begin, kind->end);
    return RecognisedFile{std::move(file), *kind, std::move(chunks)};
}

} // namespace engine
