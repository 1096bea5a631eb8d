#include "kess.hpp"

#include <array>

namespace {

constexpr int kFirstText = 13;

constexpr std::array kTexts{
    "Error loading file.",
    "Couldn't perform seek operation.  This is a limitation of the medium (ie netstreams) or the file format.",
    "Media was ejected while reading.",
    "End of file unexpectedly reached while trying to read essential data (truncated?).",
    "End of current chunk reached while trying to read data.",
    "File not found.",
    "Unsupported file or audio format.",
    "There is a version mismatch between the KESS header and either the KESS Studio library or the KESS Low Level "
    "library.",
    "A HTTP error occurred. This is a catch-all for HTTP errors not listed elsewhere.",
    "The specified resource requires authentication or is forbidden.",
    "Proxy authentication is required to access the specified resource.",
    "A HTTP server error occurred.",
    "The HTTP request timed out.",
    "KESS was not initialized correctly to support this function.",
    "Cannot call this command after System::init.",
    "An error occured in the KESS system. Use the logging version of KESS for more information.",
    "Value passed in was a NaN, Inf or denormalized float.",
    "An invalid object handle was used.",
    "An invalid parameter was passed to this function.",
    "An invalid seek position was passed to this function.",
    "An invalid speaker was passed to this function based on the current speaker mode.",
    "The syncpoint did not come from this sound handle.",
    "Tried to call a function on a thread that is not supported.",
    "The vectors passed in are not unit length, or perpendicular.",
    "Reached maximum audible playback count for this sound's soundgroup.",
    "Not enough memory or resources.",
    "Can't use KESS_OPENMEMORY_POINT on non PCM source data, or non mp3/xma/adpcm data if KESS_CREATECOMPRESSEDSAMPLE "
    "was used.",
    "Tried to call a command on a 2d sound when the command was meant for 3d sound.",
    "Tried to use a feature that requires hardware support.",
    "Couldn't connect to the specified host.",
    "A socket error occurred.  This is a catch-all for socket-related errors not listed elsewhere.",
    "The specified URL couldn't be resolved.",
    "Operation on a non-blocking socket could not complete immediately.",
    "Operation could not be performed because specified sound/DSP connection is not ready.",
    "Error initializing output device, but more specifically, the output device is already in use and cannot be "
    "reused.",
    "Error creating hardware sound buffer.",
    "A call to a standard soundcard driver failed, which could possibly mean a bug in the driver or resources were "
    "missing or exhausted.",
    "Soundcard does not support the specified format.",
    "Error initializing output device.",
    "The output device has no drivers installed.  If pre-init, KESS_OUTPUT_NOSOUND is selected as the output mode.  If "
    "post-init, the function just fails.",
    "An unspecified error has been returned from a plugin.",
    "A requested output, dsp unit type or codec was not available.",
    "A resource that the plugin requires cannot be allocated or found. (ie the DLS file for MIDI playback)",
    "A plugin was built with an unsupported SDK version.",
    "An error occurred trying to initialize the recording device.",
    "Reverb properties cannot be set on this channel because a parent channelgroup owns the reverb connection.",
    "Specified instance in KESS_REVERB_PROPERTIES couldn't be set. Most likely because it is an invalid instance "
    "number or the reverb doesn't exist.",
    "The error occurred because the sound referenced contains subsounds when it shouldn't have, or it doesn't contain "
    "subsounds when it should have.  The operation may also not be able to be performed on a parent sound.",
    "This subsound is already being used by another sound, you cannot have more than one parent to a sound.  Null out "
    "the other parent's entry first.",
    "Shared subsounds cannot be replaced or moved from their parent stream, such as when the parent stream is an TNB "
    "file.",
    "The specified tag could not be found or there are no tags.",
    "The sound created exceeds the allowable input channel count.  This can be increased using the 'maxinputchannels' "
    "parameter in System::setSoftwareFormat.",
    "The retrieved string is too long to fit in the supplied buffer and has been truncated.",
    "Something in KESS hasn't been implemented when it should be. Contact support.",
    "This command failed because System::init or System::setDriver was not called.",
    "A command issued was not supported by this object.  Possibly a plugin without certain callbacks specified.",
    "The version number of this file format is not supported.",
};

static_assert(kTexts.size() == 57, "one text for each result from 13 to 69");

} // namespace

extern "C" const char* KESS_ErrorString(KESS_RESULT result)
{
    if (result == KESS_OK)
        return "No errors.";
    if (result == KESS_ERR_KEY_WRONG)
        return "The key does not fit the encrypted bank.";
    const int index = static_cast<int>(result) - kFirstText;
    if (index < 0 || index >= static_cast<int>(kTexts.size()))
        return "Unknown error.";
    return kTexts[static_cast<size_t>(index)];
}
