// SPDX-License-Identifier: MIT
#include "api/open_sound.hpp"
#include "decode/decoders.hpp"
#include "parse/declared_length.hpp"

#include <algorithm>

namespace engine {

using SoundPointer = KESS::SoundAccess::Pointer;

namespace {

base::Result<SoundPointer> openPlain(const RecognisedFile& file)
{
    SoundFacts facts;
    facts.type = file.kind.type;
    if (file.kind.reader == Reader::None)
        return KESS::SoundAccess::fromFile(file.file, std::move(facts), nullptr);
    base::Result<DecoderPointer> decoder = openDecoder(file);
    if (!decoder)
        return std::move(decoder.error());
    facts = (*decoder)->facts();
    facts.declaredCount = std::max(facts.declaredCount, declaredSampleCount(file, facts));
    return KESS::SoundAccess::fromFile(file.file, std::move(facts), std::move(*decoder));
}

} // namespace

base::Result<SoundPointer> openAsSound(const FilePointer& file, KESS_SOUND_TYPE suggested)
{
    base::Result<RecognisedFile> recognised = recognise(file);
    if (!recognised)
        return std::move(recognised.error());
    if (suggested != KESS_SOUND_TYPE_UNKNOWN && suggested != recognised->kind.type)
        return base::Error{base::ErrorCode::Format, "it is of another kind"};
    if (recognised->kind.reader != Reader::Bank)
        return openPlain(*recognised);
    base::Result<std::unique_ptr<BankFile>> bank = BankFile::open(file->medium());
    if (!bank)
        return std::move(bank.error());
    return KESS::SoundAccess::fromBank(std::move(*bank));
}

} // namespace engine
