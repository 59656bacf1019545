#!/usr/bin/env python3
"""Writes the seed corpus of QzReadDumpFuzz into QzReadDumpFuzz/ beside this
script: a real crash dump, made by "qz dump test --keep", then variants of it
cut short or patched, each aimed at one branch of the reader.

Run from the repository root after building qz:
    python3 fuzz/corpus/make_dump_seeds.py [path/to/qz]
The default qz is build/dev/tools/qz/qz. The output is committed; rerun
after changing the dump format and review the diff.

The layout (little-endian): a 32-byte header (magic "QZDUMP\\0\\1", version,
stream count, directory offset, flags, signal), then 24-byte directory
entries (type, 0, offset, size), then the streams.
"""

import pathlib
import struct
import subprocess
import sys
import tempfile

HEADER = struct.Struct("<8sIIQII")
ENTRY = struct.Struct("<IIQQ")
SYSTEM_STREAM = 7
LOG_PART_STREAM = 0x10000


def make_real_dump(qz):
    # The dump holds the top of the child's stack, where the environment
    # lies: the child gets an empty one, so no variable of the machine that
    # made the seeds ends up in the tree.
    with tempfile.TemporaryDirectory() as folder:
        kept = pathlib.Path(folder) / "crash.qzdump"
        subprocess.run([str(pathlib.Path(qz).resolve()), "dump", "test", "--keep", str(kept)],
                       check=True, stdout=subprocess.DEVNULL, env={}, cwd=folder)
        return kept.read_bytes()


def directory(dump):
    _, _, count, at, _, _ = HEADER.unpack_from(dump, 0)
    return [(at + i * ENTRY.size,) + ENTRY.unpack_from(dump, at + i * ENTRY.size)
            for i in range(count)]


def entry_of(dump, stream_type):
    for entry_at, entry_type, _, offset, size in directory(dump):
        if entry_type == stream_type:
            return entry_at, offset, size
    raise ValueError("no stream %#x" % stream_type)


def patched(dump, at, fmt, *values):
    out = bytearray(dump)
    struct.pack_into(fmt, out, at, *values)
    return bytes(out)


def variants(dump):
    system_entry, system_at, _ = entry_of(dump, SYSTEM_STREAM)
    log_entry, log_at, log_size = entry_of(dump, LOG_PART_STREAM)
    last_part_entry, _, _ = entry_of(dump, LOG_PART_STREAM + 2)
    return {
        # The whole dump, as the writer made it.
        "crash_segv": dump,
        # Cut after the header, after the directory, inside the system
        # record, inside the first log part, and one byte short.
        "cut_after_header": dump[:HEADER.size],
        "cut_after_directory": dump[:system_at],
        "cut_in_system_record": dump[:system_at + 20],
        "cut_in_first_log_part": dump[:log_at + log_size // 2],
        "cut_last_byte": dump[:-1],
        # The system record one byte short, as its size says.
        "system_size_55": patched(dump, system_entry + 16, "<Q", 55),
        # No log: the first part's type renamed.
        "no_log": patched(dump, log_entry, "<I", 0x20000),
        # The first part without its closing nul.
        "log_unterminated": patched(dump, log_at + log_size - 1, "<B", ord("!")),
        # The last part gone, the first empty.
        "two_parts_first_empty": patched(patched(dump, last_part_entry, "<I", 0x20000),
                                         log_entry + 16, "<Q", 0),
        # Windows XP in the system record: platform 2, version 5.1.
        "platform_windows_xp": patched(dump, system_at + 4, "<III", 2, 5, 1),
        # A directory that claims more streams than the file holds.
        "stream_count_huge": patched(dump, 12, "<I", 0xFFFFFFFF),
    }


def main():
    qz = sys.argv[1] if len(sys.argv) > 1 else "build/dev/tools/qz/qz"
    out_dir = pathlib.Path(__file__).resolve().parent / "QzReadDumpFuzz"
    out_dir.mkdir(exist_ok=True)
    for old in out_dir.iterdir():
        old.unlink()
    for name, data in variants(make_real_dump(qz)).items():
        (out_dir / name).write_bytes(data)
    return 0


if __name__ == "__main__":
    sys.exit(main())
