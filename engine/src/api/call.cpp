// SPDX-License-Identifier: MIT
#include "api/call.hpp"

#include "kess.hpp"

#include "base/utf8.hpp"

#include <cerrno>
#include <cstring>
#include <utility>

namespace engine {

namespace {

thread_local base::Error lastError;

KESS_RESULT asResult(base::ErrorCode code)
{
    using base::ErrorCode;
    switch (code) {
    case ErrorCode::NotFound:
        return KESS_ERR_FILE_NOTFOUND;
    case ErrorCode::Format:
        return KESS_ERR_FORMAT;
    case ErrorCode::Version:
        return KESS_ERR_VERSION;
    case ErrorCode::Unsupported:
        return KESS_ERR_UNSUPPORTED;
    case ErrorCode::TooManyChannels:
        return KESS_ERR_TOOMANYCHANNELS;
    case ErrorCode::NotSeekable:
        return KESS_ERR_FILE_COULDNOTSEEK;
    case ErrorCode::KeyMissing:
        return KESS_ERR_KEY_MISSING;
    case ErrorCode::KeyWrong:
        return KESS_ERR_KEY_WRONG;
    case ErrorCode::Invalid:
        return KESS_ERR_INVALID_PARAM;
    case ErrorCode::Memory:
        return KESS_ERR_MEMORY;
    default: // the system failed, or the file is damaged
        return KESS_ERR_FILE_BAD;
    }
}

} // namespace

void beginCall() noexcept
{
    lastError.text.clear();
    lastError.systemError = 0;
}

KESS_RESULT fail(base::Error error) noexcept
{
    note(std::move(error));
    return asResult(lastError.code);
}

void note(base::Error error) noexcept
{
    lastError = std::move(error);
    if (lastError.code == base::ErrorCode::Memory)
        lastError.systemError = ENOMEM;
}

KESS_RESULT copyText(std::string_view text, char* buffer, int bufferBytes) noexcept
{
    if (!buffer)
        return KESS_OK;
    if (bufferBytes < 1)
        return KESS_ERR_INVALID_PARAM;
    const auto capacity = static_cast<size_t>(bufferBytes) - 1;
    const std::string_view fitting = base::cutAtCharacter(text, capacity);
    std::memcpy(buffer, fitting.data(), fitting.size());
    buffer[fitting.size()] = '\0';
    return fitting.size() < text.size() ? KESS_ERR_TRUNCATED : KESS_OK;
}

} // namespace engine

extern "C" int KESS_SystemError(void)
{
    return engine::lastError.systemError;
}

extern "C" KESS_RESULT KESS_ErrorDetail(char* text, int textBytes)
{
    return engine::copyText(engine::lastError.text, text, textBytes);
}
