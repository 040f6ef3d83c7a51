#!/usr/bin/env python3
"""usage: read_image.py IMAGE... [--extract FILE]

Reads block images as docs/image_format.md describes them, and nothing else: what it shares with the
library is that page. Prints a line of JSON for the super block and one for each extent, in the
order of the image. With --extract, writes the extents of the one image into FILE, each at its place
in the source. Ends with 1 and a line "IMAGE: REASON" for each file that is no whole image.
"""

import argparse
import json
import struct
import sys

SUPERBLOCK = struct.Struct("<8sHHI16sQQIIqII")
SUPERBLOCK_SIZE = 512
CHECKSUM_AT = 508
DESCRIPTOR = struct.Struct("<4sHHIIQ16s20sI")
RECORD = struct.Struct("<QQ")
NOT_ANNOUNCED = 2**64 - 1
LARGEST_SOURCE = 2**63 - 1
MORE, LAST, FULL = 0, 1, 2


class Refused(Exception):
    """Why a file is no whole image."""


def check(holds, reason):
    if not holds:
        raise Refused(reason)


def crc32c_table():
    table = []
    for value in range(256):
        for _ in range(8):
            value = value >> 1 ^ (0x82F63B78 if value & 1 else 0)
        table.append(value)
    return table


CRC_TABLE = crc32c_table()


def crc32c(data):
    rest = 0xFFFFFFFF
    for byte in data:
        rest = rest >> 8 ^ CRC_TABLE[(rest ^ byte) & 0xFF]
    return rest ^ 0xFFFFFFFF


def is_block_size(size):
    return 512 <= size <= 2**24 and size & (size - 1) == 0


def read_exactly(image, size, what):
    data = image.read(size)
    check(len(data) == size, f"{what} is cut off")
    return data


class Superblock:
    def __init__(self, block):
        (magic, version, zero, size, self.id, self.source_size, self.data_blocks,
         self.data_block, self.descriptor_block, self.creation_time, self.extra_size,
         self.extra_checksum) = SUPERBLOCK.unpack_from(block)
        check(magic == b"CIOIMAGE", "this is no block image")
        (checksum,) = struct.unpack_from("<I", block, CHECKSUM_AT)
        check(crc32c(block[:CHECKSUM_AT]) == checksum, "the super block's checksum is wrong")
        check(version == 1, "the version of the format is unknown")
        check(zero == 0 and size == SUPERBLOCK_SIZE and not any(block[72:CHECKSUM_AT]),
              "the super block has unknown fields")
        check(self.source_size <= LARGEST_SOURCE, "the source is too large")
        check(self.data_blocks != 0, "the image has no data block")
        check(is_block_size(self.data_block) and is_block_size(self.descriptor_block),
              "a block size is none of the format's")
        check(self.extra_size <= self.descriptor_block - 80, "the extra area is too large")

    def source_blocks(self):
        """How many data blocks the source may have."""
        return -(-(self.source_size or LARGEST_SOURCE) // self.data_block)


class Descriptor:
    def __init__(self, block, superblock, sequence):
        (magic, version, self.continuation, records, self.data_blocks, number, image_id, zeros,
         checksum) = DESCRIPTOR.unpack_from(block)
        check(magic == b"SDD1", "there is no descriptor block where one is due")
        check(crc32c(block[:60] + bytes(4) + block[64:]) == checksum,
              "a descriptor block's checksum is wrong")
        check(version == 0, "the version of a descriptor block is unknown")
        check(self.continuation in (MORE, LAST, FULL) and not any(zeros),
              "a descriptor block has unknown fields")
        check(image_id == superblock.id, "a descriptor block belongs to another image")
        check(number == sequence, "a descriptor block is out of its turn")
        check(1 <= records <= (len(block) - DESCRIPTOR.size) // RECORD.size,
              "the count of records does not fit")
        end = DESCRIPTOR.size + records * RECORD.size
        self.records = list(RECORD.iter_unpack(block[DESCRIPTOR.size:end]))
        behind = 0
        for offset, count in self.records:
            check(count > 0 and offset >= behind, "the records do not ascend")
            behind = offset + count
        check(behind <= superblock.source_blocks(), "a record ends beyond the source")
        check(sum(count for _, count in self.records) == self.data_blocks,
              "the records do not agree with the count of data blocks")

    def extents(self):
        """Runs that touch, joined."""
        joined = []
        for offset, count in self.records:
            if joined and sum(joined[-1]) == offset:
                joined[-1] = (joined[-1][0], joined[-1][1] + count)
            else:
                joined.append((offset, count))
        return joined


def read_image(image, out, extracted):
    superblock = Superblock(read_exactly(image, SUPERBLOCK_SIZE, "the super block"))
    announced = superblock.data_blocks if superblock.data_blocks != NOT_ANNOUNCED else None
    shown = {
        "id": superblock.id.hex(),
        "source_size": superblock.source_size,
        "data_blocks": announced,
        "data_block": superblock.data_block,
        "descriptor_block": superblock.descriptor_block,
        "creation_time": superblock.creation_time,
        "extra_size": superblock.extra_size,
    }
    sequence = blocks = 0
    continuation = MORE
    ended = False
    extra_size = superblock.extra_size
    while not ended:
        place = image.read(superblock.descriptor_block)
        if not place and announced is None and continuation == FULL:
            break
        check(len(place) == superblock.descriptor_block, "the image is cut off")
        if sequence == 0:
            extra = place[:extra_size]
            check(crc32c(extra) == superblock.extra_checksum,
                  "the checksum of the extra area is wrong")
            shown["extra"] = extra.decode("latin-1")
            out.write(json.dumps(shown) + "\n")
            place = place[extra_size:]
        descriptor = Descriptor(place, superblock, sequence)
        continuation = descriptor.continuation
        sequence += 1
        blocks += descriptor.data_blocks
        if announced is None:
            ended = continuation == LAST
        else:
            check(blocks <= announced, "there are more data blocks than were announced")
            ended = blocks == announced
            check(continuation != (MORE if ended else LAST),
                  "the image ends elsewhere than was announced")
        for offset, count in descriptor.extents():
            start = offset * superblock.data_block
            out.write(json.dumps({"offset": start, "length": count * superblock.data_block}) + "\n")
            if extracted:
                extracted.seek(start)
            for _ in range(count):
                data = read_exactly(image, superblock.data_block, "the data of the image")
                if extracted:
                    extracted.write(data)
    check(not image.read(1), "something stands behind the image")
    if extracted and superblock.source_size:
        extracted.truncate(superblock.source_size)


def main():
    parser = argparse.ArgumentParser(description="reads block images")
    parser.add_argument("images", metavar="IMAGE", nargs="+")
    parser.add_argument("--extract", metavar="FILE")
    arguments = parser.parse_args()
    if arguments.extract and len(arguments.images) > 1:
        parser.error("--extract takes one image")
    status = 0
    for name in arguments.images:
        try:
            with open(name, "rb") as image:
                if arguments.extract:
                    with open(arguments.extract, "wb") as extracted:
                        read_image(image, sys.stdout, extracted)
                else:
                    read_image(image, sys.stdout, None)
        except Refused as refused:
            print(f"{name}: {refused}", file=sys.stderr)
            status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
