# SPDX-License-Identifier: MIT
"""Lays out banks byte by byte, with valid checksums, as a hostile program may write them."""

import struct

from tnb_reader import HAS_NAMES, MAGIC, NO_SETUP, checksum, name_hash


def chunk(tag, payload):
    return tag + struct.pack("<I", len(payload)) + payload


def sync_points(points):
    return b"".join(struct.pack("<QI", frame, len(name)) + name for frame, name in points)


class HandBank:
    """Stores parts in the order in which they are added. Each row refers to given parts; rows may share them."""

    def __init__(self, flags=HAS_NAMES, row_bytes=96):
        self.flags, self.row_bytes = flags, row_bytes
        self.parts, self.rows, self.setups, self.names, self.index = [], [], [], b"", []
        self.body_bytes = 0

    def part(self, data):
        """Offset from the first part, size, checksum."""
        self.parts.append(data)
        self.body_bytes += len(data)
        return self.body_bytes - len(data), len(data), checksum(data)

    def again(self, part, shift):
        """The part moved by shift bytes."""
        offset, size, _ = part
        begin = offset + shift
        return begin, size, checksum(b"".join(self.parts)[begin:begin + size])

    def setup(self, data):
        self.setups.append(self.part(data))
        return len(self.setups) - 1

    def sound(self, chunks, data, length, codec=0, channels=1, rate=48000, pre_skip=0, quality=0, setup=NO_SETUP,
              sample_format=2, name=b"", name_offset=None, name_bytes=None):
        self.index.append((name_hash(name), len(self.rows)))
        name_offset = len(self.names) if name_offset is None else name_offset
        self.rows.append((struct.pack("<BBHIQIB3xI", codec, sample_format, channels, rate, length, pre_skip,
                                       quality, setup),
                          chunks, data, name_offset, len(name) if name_bytes is None else name_bytes))
        self.names += name

    def bytes(self, **header):
        rows_size, setups_size = self.row_bytes * len(self.rows), 24 * len(self.setups)
        index = sorted(self.index) if self.flags & HAS_NAMES else []
        tables_size = (rows_size + setups_size + 16 * len(index) + len(self.names) + 7) // 8 * 8
        body = 160 + tables_size
        tables = b""
        rows = []
        for front, chunks, data, name_offset, name_bytes in self.rows:
            row = front + struct.pack("<IQQQQQII", chunks[1], chunks[2], body + chunks[0], body + data[0], data[1],
                                      data[2], name_offset, name_bytes)
            rows.append(row.ljust(self.row_bytes, b"\0"))
        tables = b"".join(rows)
        tables += b"".join(struct.pack("<QQI4x", body + s[0], s[2], s[1]) for s in self.setups)
        tables += b"".join(struct.pack("<QI4x", *entry) for entry in index)
        tables = (tables + self.names).ljust(tables_size, b"\0")
        f = dict(major=2, minor=0, size=160, flags=self.flags, format=0, quality=0,
                 sounds=len(self.rows), file=body + self.body_bytes, guid=bytes(16), rows_offset=160,
                 row_bytes=self.row_bytes, setups=len(self.setups), index_offset=160 + rows_size + setups_size,
                 index_count=len(index), names_offset=160 + rows_size + setups_size + 16 * len(index),
                 names_bytes=len(self.names), setup_rows=160 + rows_size, tables=tables_size,
                 tables_checksum=checksum(tables)) | header
        front = MAGIC + struct.pack("<HHIIIIIQ16sQIIQIIQQQQQ24x", f["major"], f["minor"], f["size"], f["flags"],
                                    f["format"], f["quality"], f["sounds"], f["file"], f["guid"], f["rows_offset"],
                                    f["row_bytes"], f["setups"], f["index_offset"], f["index_count"], 0,
                                    f["names_offset"], f["names_bytes"], f["setup_rows"], f["tables"],
                                    f["tables_checksum"])
        return b"".join([front, struct.pack("<Q", checksum(front)), tables, *self.parts])
