// SPDX-License-Identifier: MIT
// An external encoder for one format, from a shared library in the same folder as this one. See tarnok_encoder.h.
#pragma once

#include "base/result.hpp"
#include "encode/encoder.hpp"

#include <memory>
#include <string>

struct TARNOK_ENCODER_MODULE;

namespace builder {

// A loaded module. It must outlive the encoders that it makes.
class EncoderModule
{
public:
    // Whether codec is encoded by a module.
    [[nodiscard]] static bool encodes(bank::Codec codec);

    // ErrorCode::ModuleMissing, ErrorCode::ModuleBad.
    static base::Result<std::shared_ptr<const EncoderModule>> load(bank::Codec codec);

    // Like the functions of the same names in encoder.hpp. If the module returns a rate that is out of range,
    // sampleRate is returned.
    [[nodiscard]] std::string version() const;
    [[nodiscard]] int maximumChannels() const;
    [[nodiscard]] uint32_t encodingRate(uint32_t sampleRate) const;

    // flags are those of TARNOK_ENCODER_SOUND.
    [[nodiscard]] std::unique_ptr<Encoder> makeEncoder(unsigned flags) const;

private:
    EncoderModule(std::shared_ptr<void> library, const TARNOK_ENCODER_MODULE& interface);

    std::shared_ptr<void> mLibrary;
    const TARNOK_ENCODER_MODULE& mInterface;
};

} // namespace builder
