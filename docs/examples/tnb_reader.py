# SPDX-License-Identifier: MIT
"""Reads sound banks as docs/tnb-format.md describes them, with nothing but Python's standard library.

Lists every field of a bank, verifies all checksums, and decodes PCM and KADPCM. Of an encrypted bank it reads only the
header. As a program, it prints the contents of the banks named in its arguments as JSON.
"""

import json
import math
import struct
import sys

MAGIC = bytes.fromhex("89544E420D0A1A0A")
ENCRYPTED, HAS_GUID, HAS_NAMES = 1, 2, 4
PCM, XMA, AT9, VORBIS, KADPCM, OPUS = range(6)
SAMPLE_BYTES = {1: 1, 2: 2, 3: 3, 4: 4, 5: 4}
NO_SETUP = 0xFFFFFFFF
MASK = (1 << 64) - 1
MAXIMUM_TABLES, MAXIMUM_SETUP, MAXIMUM_CHUNKS, MAXIMUM_NAME = 32 << 20, 1 << 20, 8 << 20, 65535
MAXIMUM_SYNC_POINTS, MAXIMUM_SEEK_POINTS, MAXIMUM_PRE_SKIP, MAXIMUM_PACKET = 65536, 131072, 131072, (1 << 21) - 1


class Damaged(Exception):
    pass


def require(holds, what):
    if not holds:
        raise Damaged(what)


# XXH3, 64 bits, seed 0, for inputs of any length.

SECRET = bytes.fromhex(
    "b8fe6c3923a44bbe7c01812cf721ad1cded46de9839097db7240a4a4b7b3671fcb79e64eccc0e578825ad07dccff7221b8084674f743248e"
    "e03590e6813a264c3c2852bb91c300cb88d0658b1b532ea371644897a20df94e3819ef46a9deacd8a8fa763fe39c343ff9dcbbc7c70b4f1d"
    "8a51e04bcdb45931c89f7ec9d9787364eac5ac8334d3ebc3c581a0fffa1363eb170ddd51b7f0da49d316552629d4689e2b16be587d47a1fc"
    "8ff8b8d17ad031ce45cb3a8f95160428afd7fbcabb4b407e")
P32_1, P32_2, P32_3 = 0x9E3779B1, 0x85EBCA77, 0xC2B2AE3D
P64_1, P64_2, P64_3 = 0x9E3779B185EBCA87, 0xC2B2AE3D27D4EB4F, 0x165667B19E3779F9
P64_4, P64_5 = 0x85EBCA77C2B2AE63, 0x27D4EB2F165667C5
PRIME_MX1, PRIME_MX2 = 0x165667919E3779F9, 0x9FB21C651E98DF25


def u32(data, at):
    return int.from_bytes(data[at:at + 4], "little")


def u64(data, at):
    return int.from_bytes(data[at:at + 8], "little")


def swap64(value):
    return int.from_bytes(value.to_bytes(8, "little"), "big")


def fold(a, b):
    product = a * b
    return (product & MASK) ^ (product >> 64)


def avalanche(h):
    h ^= h >> 37
    h = h * PRIME_MX1 & MASK
    return h ^ h >> 32


def avalanche_xxh64(h):
    h ^= h >> 33
    h = h * P64_2 & MASK
    h ^= h >> 29
    h = h * P64_3 & MASK
    return h ^ h >> 32


def mix16(data, at, secret_at):
    return fold(u64(data, at) ^ u64(SECRET, secret_at), u64(data, at + 8) ^ u64(SECRET, secret_at + 8))


def xxh3_short(data):
    n = len(data)
    if n == 0:
        return avalanche_xxh64(u64(SECRET, 56) ^ u64(SECRET, 64))
    if n <= 3:
        combined = data[0] << 16 | data[n >> 1] << 24 | data[-1] | n << 8
        return avalanche_xxh64(combined ^ u32(SECRET, 0) ^ u32(SECRET, 4))
    if n <= 8:
        h = u32(data, n - 4) + (u32(data, 0) << 32) ^ u64(SECRET, 8) ^ u64(SECRET, 16)
        h ^= (h << 49 | h >> 15) & MASK ^ (h << 24 | h >> 40) & MASK
        h = h * PRIME_MX2 & MASK
        h ^= (h >> 35) + n
        h = h * PRIME_MX2 & MASK
        return h ^ h >> 28
    low = u64(data, 0) ^ u64(SECRET, 24) ^ u64(SECRET, 32)
    high = u64(data, n - 8) ^ u64(SECRET, 40) ^ u64(SECRET, 48)
    return avalanche(n + swap64(low) + high + fold(low, high) & MASK)


def xxh3_middle(data):
    n = len(data)
    h = n * P64_1
    if n <= 128:
        for i in range((n - 1) // 32, -1, -1):
            h += mix16(data, 16 * i, 32 * i) + mix16(data, n - 16 * (i + 1), 32 * i + 16)
        return avalanche(h & MASK)
    for i in range(8):
        h += mix16(data, 16 * i, 16 * i)
    h = avalanche(h & MASK)
    for i in range(8, n // 16):
        h += mix16(data, 16 * i, 16 * (i - 8) + 3)
    return avalanche(h + mix16(data, n - 16, 136 - 17) & MASK)


def accumulate(lanes, data, at, keys):
    stripe = struct.unpack_from("<8Q", data, at)
    for i in range(8):
        keyed = stripe[i] ^ keys[i]
        lanes[i ^ 1] += stripe[i]
        lanes[i] += (keyed & 0xFFFFFFFF) * (keyed >> 32)


def xxh3_long(data):
    n = len(data)
    stripe_keys = [struct.unpack_from("<8Q", SECRET, 8 * i) for i in range(16)]
    scramble_keys = struct.unpack_from("<8Q", SECRET, 128)
    last_keys = struct.unpack_from("<8Q", SECRET, 192 - 64 - 7)
    lanes = [P32_3, P64_1, P64_2, P64_3, P64_4, P32_2, P64_5, P32_1]
    for number, at in enumerate(range(0, (n - 1) // 64 * 64, 64)):
        accumulate(lanes, data, at, stripe_keys[number % 16])
        if number % 16 == 15:
            lanes = [((lane & MASK ^ (lane & MASK) >> 47 ^ key) * P32_1) & MASK
                     for lane, key in zip(lanes, scramble_keys)]
    accumulate(lanes, data, n - 64, last_keys)
    lanes = [lane & MASK for lane in lanes]
    h = n * P64_1
    for i in range(4):
        h += fold(lanes[2 * i] ^ u64(SECRET, 11 + 16 * i), lanes[2 * i + 1] ^ u64(SECRET, 11 + 16 * i + 8))
    return avalanche(h & MASK)


def checksum(data):
    data = bytes(data)
    return xxh3_short(data) if len(data) <= 16 else xxh3_middle(data) if len(data) <= 240 else xxh3_long(data)


# Header and tables.

def are_disjoint(ranges):
    """Whether no two ranges, each an offset and a size, share a byte."""
    ends = 0
    for offset, size in sorted(part for part in ranges if part[1] > 0):
        if offset < ends:
            return False
        ends = offset + size
    return True


def read_header(data):
    """The fields of either kind of header, by name."""
    require(len(data) >= 40 and data[:8] == MAGIC, "not a bank")
    major, minor, size, flags = struct.unpack_from("<HHII", data, 8)
    require(major == 2, "version")
    require(size % 8 == 0 and size <= 4096, "size of the header")
    header = {"major": major, "minor": minor, "headerBytes": size, "flags": flags}
    if flags & ENCRYPTED:
        require(size >= 128, "size of the header")
        piece, plain, file, passes, memory = struct.unpack_from("<IQQII", data, 20)
        header |= {"pieceBytes": piece, "plainBytes": plain, "fileBytes": file, "passes": passes, "memoryKiB": memory,
                   "contentTag": bytes(data[48:80]), "keyCheck": bytes(data[80:96])}
        require(file == size + plain + 16 * -(-plain // piece), "sizes")
    else:
        require(size >= 160, "size of the header")
        header |= dict(zip(("format", "quality", "soundCount", "fileBytes"), struct.unpack_from("<IIIQ", data, 20)))
        header["guid"] = bytes(data[40:56])
        header |= dict(zip(("rowsOffset", "rowBytes", "setupCount", "nameIndexOffset", "nameIndexCount"),
                           struct.unpack_from("<QIIQI", data, 56)))
        header |= dict(zip(("namesOffset", "namesBytes", "setupRowsOffset", "tablesBytes", "tablesChecksum"),
                           struct.unpack_from("<QQQQQ", data, 88)))
    require(header["fileBytes"] == len(data), "size of the file")
    require(checksum(data[:size - 8]) == u64(data, size - 8), "checksum of the header")
    return header


ROW = (("codec", "B"), ("sampleFormat", "B"), ("channels", "H"), ("rate", "I"), ("length", "Q"), ("preSkip", "I"),
       ("quality", "B"), (None, "3x"), ("setup", "I"), ("chunksBytes", "I"), ("chunksChecksum", "Q"),
       ("chunksOffset", "Q"), ("dataOffset", "Q"), ("dataBytes", "Q"), ("dataChecksum", "Q"), ("nameOffset", "I"),
       ("nameBytes", "I"))


def name_hash(name):
    h = 0xCBF29CE484222325
    for byte in name:
        h = (h ^ byte) * 0x100000001B3 & MASK
    return h


class Bank:
    def __init__(self, data):
        self.data = memoryview(data)
        self.header = read_header(self.data)
        self.sounds = []
        if not self.header["flags"] & ENCRYPTED:
            self._read_tables()

    def part(self, offset, size):
        require(offset + size <= len(self.data), "a part lies outside the file")
        return self.data[offset:offset + size]

    def _read_tables(self):
        h = self.header
        begin, end = h["headerBytes"], h["headerBytes"] + h["tablesBytes"]
        require(h["tablesBytes"] <= MAXIMUM_TABLES, "size of the tables")
        require(checksum(self.part(begin, h["tablesBytes"])) == h["tablesChecksum"], "checksum of the tables")
        require(96 <= h["rowBytes"] <= 4096 and h["quality"] <= 100, "header")
        has_names = h["flags"] & HAS_NAMES
        require(h["nameIndexCount"] == (h["soundCount"] if has_names else 0), "number of names")
        require(has_names or h["namesBytes"] == 0, "size of the names")

        tables = [(h["rowsOffset"], h["soundCount"] * h["rowBytes"]), (h["setupRowsOffset"], h["setupCount"] * 24),
                  (h["nameIndexOffset"], h["nameIndexCount"] * 16), (h["namesOffset"], h["namesBytes"])]
        require(all(begin <= offset and offset + size <= end for offset, size in tables),
                "a table lies outside the tables")
        require(are_disjoint(tables), "two tables share bytes")
        rows, setup_rows, index, names = (self.part(*table) for table in tables)
        self.setups = [self._read_setup(*struct.unpack_from("<QQI", setup_rows, 24 * i))
                       for i in range(h["setupCount"])]
        for i in range(h["soundCount"]):
            self.sounds.append(self._read_sound(rows[i * h["rowBytes"]:], names))
        setups = [struct.unpack_from("<Q8xI", setup_rows, 24 * i) for i in range(h["setupCount"])]
        parts = [(sound[part + "Offset"], sound[part + "Bytes"]) for sound in self.sounds for part in ("chunks", "data")]
        require(all(offset >= end for offset, _ in setups + parts), "a part lies inside the tables")
        require(are_disjoint(setups + parts), "two parts share bytes")
        require(are_disjoint((sound["nameOffset"], sound["nameBytes"]) for sound in self.sounds), "names share bytes")
        self.name_index = [struct.unpack_from("<QI", index, 16 * i) for i in range(h["nameIndexCount"])]
        require(self.name_index == sorted(self.name_index), "order of the names")
        for hashed, sound in self.name_index:
            require(hashed == name_hash(self.sounds[sound]["name"]), "hash of a name")

    def _read_setup(self, offset, expected, size):
        require(size <= MAXIMUM_SETUP, "size of a setup")
        setup = bytes(self.part(offset, size))
        require(checksum(setup) == expected, "checksum of a setup")
        return setup

    def _read_sound(self, row, names):
        values = struct.unpack_from("<" + "".join(code for _, code in ROW), row)
        sound = dict(zip((name for name, _ in ROW if name), values))
        require(1 <= sound["channels"] <= 32 and 1 <= sound["rate"] <= 768000, "row of a sound")
        require(sound["length"] <= 1 << 48 and sound["preSkip"] <= MAXIMUM_PRE_SKIP, "length of a sound")
        require(sound["chunksBytes"] <= MAXIMUM_CHUNKS and sound["nameBytes"] <= MAXIMUM_NAME, "row of a sound")
        require(sound["nameOffset"] + sound["nameBytes"] <= len(names), "a name lies outside the names")
        sound["name"] = bytes(names[sound["nameOffset"]:][:sound["nameBytes"]])
        require(0 not in sound["name"], "zero in a name")
        chunks = self.part(sound["chunksOffset"], sound["chunksBytes"])
        require(checksum(chunks) == sound["chunksChecksum"], "checksum of the chunks")
        sound |= read_chunks(chunks, sound)
        require(checksum(self.sound_data(sound)) == sound["dataChecksum"], "checksum of the data")
        return sound

    def sound_data(self, sound):
        return self.part(sound["dataOffset"], sound["dataBytes"])

    def find(self, name):
        """Index of the first sound of that name, or None."""
        hashed = name_hash(name)
        for entry, sound in self.name_index:
            if entry == hashed and self.sounds[sound]["name"] == name:
                return sound
        return None

    def decode(self, sound):
        """The samples of a PCM or KADPCM sound, as bytes in its sample format."""
        data = self.sound_data(sound)
        if sound["codec"] == PCM:
            size = sound["length"] * sound["channels"] * SAMPLE_BYTES[sound["sampleFormat"]]
            require(size == len(data), "size of the data")
            return bytes(data)
        require(sound["codec"] == KADPCM, "a codec that this reader can't decode")
        return decode_kadpcm(bytes(data), sound["channels"], sound["length"])

    def packets(self, sound):
        """The packets of a Vorbis or Opus sound."""
        data = self.sound_data(sound)
        packets, at = [], 0
        while at < len(data):
            size, shift = 0, 0
            while True:
                require(shift < 21 and at < len(data), "size of a packet")
                byte = data[at]
                at += 1
                size |= (byte & 127) << shift
                shift += 7
                if byte < 128:
                    break
            require(at + size <= len(data), "end of a packet")
            packets.append(bytes(data[at:at + size]))
            at += size
        return packets


KNOWN_TAGS = {b"LOOP", b"PEAK", b"SYNC", b"SEEK", b"SEAM"}


def read_chunks(chunks, sound):
    found = {"loop": None, "peak": None, "syncPoints": [], "seekPoints": [], "corrections": []}
    at, seen = 0, set()
    while at < len(chunks):
        require(at + 8 <= len(chunks), "head of a chunk")
        tag, size = struct.unpack_from("<4sI", chunks, at)
        payload = chunks[at + 8:at + 8 + size]
        require(len(payload) == size, "size of a chunk")
        at += 8 + size
        require(tag not in seen, "a chunk occurs twice")
        if tag in KNOWN_TAGS:
            seen.add(tag)
        if tag == b"LOOP":
            found["loop"] = struct.unpack_from("<QQ", payload)
            require(found["loop"][0] < found["loop"][1] <= sound["length"], "loop")
        elif tag == b"PEAK":
            found["peak"] = struct.unpack_from("<f", payload)[0]
        elif tag == b"SYNC":
            found["syncPoints"] = read_sync_points(payload, sound["length"])
        elif tag == b"SEEK":
            found["seekPoints"] = read_seek_points(payload, sound)
        elif tag == b"SEAM":
            found["corrections"] = read_corrections(payload, sound["channels"])
    return found


def read_sync_points(payload, length):
    points, at = [], 0
    while at < len(payload):
        frame, size = struct.unpack_from("<QI", payload, at)
        name = bytes(payload[at + 12:at + 12 + size])
        require(frame <= length and size <= MAXIMUM_NAME and 0 not in name, "sync points")
        points.append((frame, name))
        at += 12 + size
    require(at == len(payload) and points == sorted(points, key=lambda point: point[0]), "sync points")
    require(len(points) <= MAXIMUM_SYNC_POINTS, "number of sync points")
    return points


def read_seek_points(payload, sound):
    require(len(payload) % 16 == 0 and len(payload) // 16 <= MAXIMUM_SEEK_POINTS, "number of seek points")
    points = list(struct.iter_unpack("<QQ", payload))
    for (position, offset), before in zip(points, [(0, 0)] + points):
        require(position > before[0] and offset > before[1], "order of the seek points")
        require(position <= sound["preSkip"] + sound["length"] and offset < sound["dataBytes"], "a seek point")
    return points


def read_corrections(payload, channels):
    corrections, at = [], 0
    while at < len(payload):
        first, frames = struct.unpack_from("<QI", payload, at)
        size = channels * (-(-frames // 64) + -(-frames // 4))
        corrections.append((first, frames, bytes(payload[at + 12:at + 12 + size])))
        at += 12 + size
    require(at == len(payload) and len(corrections) <= 8, "corrections")
    return corrections


# KADPCM.

SUPERBLOCK_FRAMES = 2048
MANTISSAS = (256, 267, 279, 292, 304, 318, 332, 347, 362, 378, 395, 412, 431, 450, 470, 490)
CONSTANT, PLAIN = 62, 63


def clamp(value):
    return max(-32768, min(32767, value))


class Bits:
    """A bit stream, the most significant bit of each byte first."""

    def __init__(self, data):
        self.text = format(int.from_bytes(b"\1" + data, "big"), "b")[1:]
        self.at = 0

    def unsigned(self, count):
        require(self.at + count <= len(self.text), "end of the bit stream")
        value = int(self.text[self.at:self.at + count], 2) if count else 0
        self.at += count
        return value

    def signed(self, count):
        value = self.unsigned(count)
        return value - (1 << count) if value >> count - 1 else value

    def zeros(self, maximum):
        """Counts and skips up to maximum zeros, but not the one bit after them."""
        one = self.text.find("1", self.at, self.at + maximum)
        count = (one if one >= 0 else min(self.at + maximum, len(self.text))) - self.at
        self.at += count
        return count


def decode_kadpcm(data, channels, length):
    samples, at = bytearray(), 0
    for start in range(0, length, SUPERBLOCK_FRAMES):
        frames = min(SUPERBLOCK_FRAMES, length - start)
        block = []
        for _ in range(channels):
            require(at + 2 <= len(data), "end of a superblock")
            size = int.from_bytes(data[at:at + 2], "little")
            require(size >= 1 and at + 2 + size <= len(data), "end of a channel block")
            block.append(decode_channel(data[at + 2:at + 2 + size], frames, block[-1] if block else None))
            at += 2 + size
        interleaved = [value for frame in zip(*block) for value in frame]
        samples += struct.pack(f"<{len(interleaved)}h", *interleaved)
    require(at == len(data), "data after the last superblock")
    return bytes(samples)


def decode_channel(block, frames, before):
    mode = block[0]
    if mode == CONSTANT:
        return [struct.unpack_from("<h", block, 1)[0]] * frames
    if mode == PLAIN:
        return list(struct.unpack_from(f"<{frames}h", block, 1))
    require(mode <= 32, "mode")
    return decode_predicted(block[1], Bits(block[2:]), mode, frames, before)


def coefficient_bits(number):
    return 9 if number <= 2 else 7 if number <= 8 else 6


def reflection(index, bits):
    value = 2 ** 20 * math.sin(index * math.pi / 2 ** bits)
    return int(math.copysign(math.floor(abs(value) + 0.5), value))


def predictors(reflections):
    """The predictors of all orders, starting with order 0."""
    orders = [[]]
    for k in reflections:
        a = orders[-1]
        i = len(a)
        longer = [max(-2 ** 30, min(2 ** 30, a[j] - (k * a[i - 1 - j] + 2 ** 19 >> 20))) for j in range(i)]
        orders.append(longer + [k])
    return orders


def exp_golomb(bits, start):
    zeros = bits.zeros(17 - start + 1)
    require(zeros <= 17 - start, "code of a sample")
    return bits.unsigned(zeros + start + 1) - (1 << start)


def rice(bits, mean):
    r = min((mean >> 5).bit_length(), 17)
    zeros = bits.zeros(20)
    if zeros == 20:
        return bits.unsigned(17)
    bits.unsigned(1)
    return (zeros << r) + bits.unsigned(r)


def decode_predicted(step, bits, mode, frames, before):
    size = MANTISSAS[step & 15] << (step >> 4)
    coupling = bits.unsigned(5) - 16 if before is not None else 0
    start = bits.unsigned(5)
    require(start <= 17, "start")
    reflections = []
    for i in range(1, mode + 1):
        reflections.append(reflection(bits.signed(coefficient_bits(i)), coefficient_bits(i)))
    orders = predictors(reflections)
    coupled = [coupling * y + 4 >> 3 for y in before] if before is not None else [0] * frames
    x = [bits.signed(16)]
    d = [x[0] - coupled[0]]
    mean = 24 << start
    for n in range(1, frames):
        order = min(n, mode)
        if n <= mode:
            u = exp_golomb(bits, start)
        else:
            u = rice(bits, mean)
            mean += u - (mean >> 4)
        recent = d[n - 1:n - order - 1:-1] if n > order else d[::-1]
        total = sum(map(int.__mul__, orders[order], recent))
        predicted = clamp(coupled[n] + (total + 2 ** 19 >> 20))
        q = -(u + 1) // 2 if u & 1 else u // 2
        x.append(clamp(predicted + (q * size + 128 >> 8)))
        d.append(x[n] - coupled[n])
    require(len(bits.text) - bits.at < 8, "bits after the last sample")
    return x


def listing(bank):
    """All fields as values that JSON can represent."""
    def shown(value):
        if isinstance(value, bytes):
            return value.decode("utf-8") if value.isascii() and value.decode().isprintable() else value.hex()
        if isinstance(value, dict):
            return {key: shown(inner) for key, inner in value.items()}
        if isinstance(value, (list, tuple)):
            return [shown(inner) for inner in value]
        return value

    return shown({"header": bank.header, "sounds": bank.sounds})


if __name__ == "__main__":
    for path in sys.argv[1:]:
        with open(path, "rb") as bank_file:
            print(json.dumps({"file": path} | listing(Bank(bank_file.read())), indent=2))
