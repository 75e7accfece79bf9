#!/usr/bin/env python3
"""Writes the seed archives of kxzef_extract_fuzzer into extract-corpus/.

Each seed is small and reaches one path of zef's audited extraction: a clean
tree with a link (extracted), names and links that leave the destination,
a record that only the library reads, a shared local header and a wrong
CRC (refused or failed).
Run it from any directory; it replaces the folder's contents.
"""
import io
import os
import struct
import warnings
import zipfile

warnings.simplefilter("ignore")  # the duplicate name is the point of one seed

HERE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "extract-corpus")


def info(name, mode, system=3):
    entry = zipfile.ZipInfo(name, date_time=(2008, 3, 5, 9, 18, 6))
    entry.create_system = system
    entry.external_attr = mode << 16
    return entry


def link(name, target):
    # The link block as this library writes it: its length counts its own header.
    entry = info(name, 0o120777)
    entry.extra = struct.pack("<HH", 13, len(target) + 16) + bytes(12) + target.encode()
    return entry


def archive(entries):
    buffer = io.BytesIO()
    with zipfile.ZipFile(buffer, "w") as z:
        for entry, data, method in entries:
            entry.compress_type = method
            z.writestr(entry, data)
    return buffer.getvalue()


def shared_local_header(copies):
    """One deflated entry that `copies` central records all point at."""
    single = archive([(info("big", 0o100644), b"0123456789" * 400, zipfile.ZIP_DEFLATED)])
    end = single.rindex(b"PK\x05\x06")
    directory_offset = struct.unpack_from("<I", single, end + 16)[0]
    record = single[directory_offset:end]
    records = b"".join(record[:46] + b"bi" + bytes([ord("a") + i]) + record[49:] for i in range(copies))
    tail = struct.pack("<4sHHHHIIH", b"PK\x05\x06", 0, 0, copies, copies, len(records), directory_offset, 0)
    return single[:directory_offset] + records + tail


def seeds():
    text = b"speed=fast\n" * 20
    yield "tree.zef", archive([
        (info("app/", 0o40755), b"", zipfile.ZIP_STORED),
        (info("app/bin/run", 0o100755), b"#!/bin/sh\necho run\n", zipfile.ZIP_DEFLATED),
        (info("app/etc/run.conf", 0o100640), text, zipfile.ZIP_DEFLATED),
        (link("app/bin/conf", "../etc/run.conf"), b"../etc/run.conf", zipfile.ZIP_STORED),
        (info("DOS.TXT", 0, system=0), b"made without Unix modes\r\n", zipfile.ZIP_STORED),
    ])
    yield "escape.zef", archive([
        (info("../x", 0o100644), b"up", zipfile.ZIP_STORED),
        (info("/abs/x", 0o104755), b"absolute, set-user-ID", zipfile.ZIP_STORED),
        (info("..\\..\\w", 0o100644), b"backslashes", zipfile.ZIP_STORED),
    ])
    yield "through-link.zef", archive([
        (link("d", "/tmp"), b"/tmp", zipfile.ZIP_STORED),
        (info("d/evil", 0o100644), b"through the link", zipfile.ZIP_STORED),
        (info("d/made/", 0o40755), b"", zipfile.ZIP_STORED),
        (info("d", 0o100644), b"a file of the link's name", zipfile.ZIP_STORED),
    ])
    hidden = bytearray(archive([
        (link("d", "/tmp"), b"/tmp", zipfile.ZIP_STORED),
        (info("d/evil", 0o100644), b"below the link", zipfile.ZIP_STORED),
    ]))
    second = hidden.rindex(b"PK\x01\x02")
    hidden[second + 32:second + 34] = b"\xff\xff"  # a comment past the directory's end hides the record from an audit
    yield "hidden.zef", bytes(hidden)
    yield "shared.zef", shared_local_header(8)
    crc = bytearray(archive([(info("b.bin", 0o100644), b"checked data", zipfile.ZIP_STORED)]))
    central = crc.rindex(b"PK\x01\x02")
    crc[14] ^= 1
    crc[central + 16] ^= 1
    yield "crc.zef", bytes(crc)


def main():
    os.makedirs(HERE, exist_ok=True)
    for old in os.listdir(HERE):
        os.remove(os.path.join(HERE, old))
    for name, data in seeds():
        with open(os.path.join(HERE, name), "wb") as out:
            out.write(data)


if __name__ == "__main__":
    main()
