# SPDX-License-Identifier: MIT
"""Opens and decodes sounds and banks with the audio engine, over its C interface.

    with kess.Engine() as engine, engine.open("effects.tnb", key=None) as bank:
        for sound in bank.sounds():
            print(sound.name, sound.channels, sound.rate, sound.length)
        with bank.sound("bell").voice() as voice:
            voice.loop(3)
            for block in voice.blocks():  # array.array of interleaved floats, full scale -1 to 1
                ...

The library is that of the package libkess14, or the one at the path in the variable KESS_LIBRARY. Every failure is a
kess.Error.
"""

import array
import ctypes
import os
import weakref
from ctypes import POINTER, byref, c_char_p, c_float, c_int, c_uint, c_uint64, c_void_p

VERSION = 0x00020400  # of the header that the calls below are taken from
OPEN_ONLY = 0x2000
END_OF_SOUND = 16
NOT_FOUND = 63

_library = ctypes.CDLL(os.environ.get("KESS_LIBRARY", "/usr/lib/tarnok/lib/libkessL.so.14"))


class Error(Exception):
    """A failed call, with its result and the error of the operating system, 0 for none."""

    def __init__(self, result, what):
        self.result = result
        self.errno = _library.KESS_SystemError()
        detail = ctypes.create_string_buffer(512)
        _library.KESS_ErrorDetail(detail, len(detail))
        text = _library.KESS_ErrorString(result).decode()
        super().__init__(": ".join(filter(None, (what, text, detail.value.decode("utf-8", "replace")))))


def _declare(name, *arguments):
    function = _library[name]
    function.argtypes = arguments
    function.restype = c_int

    def call(*values, what=None, allow=()):
        result = function(*values)
        if result != 0 and result not in allow:
            raise Error(result, what)
        return result
    return call


_library.KESS_ErrorString.restype = c_char_p
_library.KESS_ErrorDetail.argtypes = (c_char_p, c_int)
_get_version = _declare("KESS_GetVersion", POINTER(c_uint))
_create = _declare("KESS_System_Create", POINTER(c_void_p), c_uint)
_init = _declare("KESS_System_Init", c_void_p, c_int, c_uint, c_void_p)
_end = _declare("KESS_System_Release", c_void_p)
_open = _declare("KESS_System_CreateSound", c_void_p, c_char_p, c_uint, c_void_p, POINTER(c_void_p))
_open_memory = _declare("KESS_System_CreateSoundFromMemory", c_void_p, c_void_p, c_uint64, c_uint, c_void_p,
                        POINTER(c_void_p))
_release = _declare("KESS_Sound_Release", c_void_p)
_set_key = _declare("KESS_Sound_SetEncryptionKey", c_void_p, c_char_p)
_count = _declare("KESS_Sound_GetNumSubSounds", c_void_p, POINTER(c_int))
_by_index = _declare("KESS_Sound_GetSubSound", c_void_p, c_int, POINTER(c_void_p))
_by_name = _declare("KESS_Sound_GetSubSoundByName", c_void_p, c_char_p, POINTER(c_void_p))
_voice = _declare("KESS_Sound_CreateVoice", c_void_p, POINTER(c_void_p))
_name = _declare("KESS_Sound_GetName", c_void_p, c_char_p, c_int)
_format = _declare("KESS_Sound_GetFormat", c_void_p, c_void_p, c_void_p, POINTER(c_int), c_void_p)
_defaults = _declare("KESS_Sound_GetDefaults", c_void_p, POINTER(c_float), c_void_p)
_samples = _declare("KESS_Sound_GetSampleCount", c_void_p, POINTER(c_uint64))
_loop = _declare("KESS_Sound_GetLoopPoints", c_void_p, POINTER(c_uint64), POINTER(c_uint64))
_set_loops = _declare("KESS_Sound_SetLoopCount", c_void_p, c_int)
_seek = _declare("KESS_Sound_SeekData", c_void_p, c_uint64)
_read = _declare("KESS_Sound_ReadFloat", c_void_p, c_void_p, c_uint, POINTER(c_uint))


def version():
    """The library's version in binary-coded decimal."""
    number = c_uint()
    _get_version(byref(number))
    return number.value


class _Handle:
    """An object of the library, until close() or the end of a with statement."""

    def __init__(self, handle, end, needed=None):
        self._handle, self._end = handle, end
        self._needed = needed  # objects that must exist as long
        self._owned = weakref.WeakSet()  # handles that end with this one

    def close(self):
        for handle in self._owned:
            handle._handle = None
        if self._handle and self._end:
            self._end(self._handle)
        self._handle = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


class Engine(_Handle):
    def __init__(self):
        handle = c_void_p()
        _create(byref(handle), VERSION)
        super().__init__(handle, _end)
        _init(handle, 0, 0, None)

    def open(self, path, key=None):
        """A file, by its path, or a bytes object with what a file contains."""
        handle = c_void_p()
        if isinstance(path, bytes):
            _open_memory(self._handle, path, len(path), OPEN_ONLY, None, byref(handle))
            sound = Sound(handle, _release, (self, path))
        else:
            _open(self._handle, os.fsencode(path), OPEN_ONLY, None, byref(handle), what=os.fspath(path))
            sound = Sound(handle, _release, self)
        if key is not None:
            try:
                _set_key(handle, key.encode())
            except Error:
                sound.close()
                raise
        return sound


class Sound(_Handle):
    """A sound file, a bank, a sound of a bank (closed with the bank) or a voice."""

    def _value(self, call, kind):
        value = kind()
        call(self._handle, byref(value))
        return value.value

    def sounds(self):
        """All sounds of a bank."""
        return [self.sound(index) for index in range(self._value(_count, c_int))]

    def sound(self, which):
        """A sound of the bank, by index or name."""
        handle = c_void_p()
        if isinstance(which, int):
            _by_index(self._handle, which, byref(handle))
        else:
            _by_name(self._handle, which.encode(), byref(handle), what=which)
        sound = Sound(handle, None, self._needed)
        self._owned.add(sound)
        return sound

    def voice(self):
        """An independent decoder of this sound, which may outlive its bank."""
        handle = c_void_p()
        _voice(self._handle, byref(handle))
        return Sound(handle, _release, self._needed)

    @property
    def name(self):
        text = ctypes.create_string_buffer(65536)
        _name(self._handle, text, len(text))
        return text.value.decode("utf-8", "surrogateescape")

    @property
    def channels(self):
        value = c_int()
        _format(self._handle, None, None, byref(value), None)
        return value.value

    @property
    def rate(self):
        value = c_float()
        _defaults(self._handle, byref(value), None)
        return value.value

    @property
    def length(self):
        """In samples of one channel."""
        return self._value(_samples, c_uint64)

    @property
    def loop_points(self):
        """Start and end of the loop, or None."""
        start, end = c_uint64(), c_uint64()
        found = _loop(self._handle, byref(start), byref(end), allow=(NOT_FOUND,)) == 0
        return (start.value, end.value) if found else None

    def loop(self, count):
        """Repeats the loop count times from now on; -1: for ever."""
        _set_loops(self._handle, count)

    def seek(self, sample):
        _seek(self._handle, sample)

    def read(self, frames):
        """At most that many frames, interleaved; none at the end of the sound."""
        block = array.array("f", bytes(4 * frames * self.channels))
        got = c_uint()
        address, _ = block.buffer_info()
        _read(self._handle, address, frames, byref(got), allow=(END_OF_SOUND,))
        return block[:got.value * self.channels]

    def blocks(self, frames=4096):
        """The rest of the sound, block by block."""
        while block := self.read(frames):
            yield block
