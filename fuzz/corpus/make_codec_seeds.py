#!/usr/bin/env python3
"""Writes the seed corpora of the codec fuzz targets (QzStepToWideFuzz,
QzSevenBitFuzz, QzEncodeFuzz) into folders of those names beside this
script. Each seed aims at one branch of a decoder; the bytes are spelled out
by hand so that the seeds do not depend on the codecs under test.

Run from anywhere: python3 fuzz/corpus/make_codec_seeds.py
The output is committed; rerun after changing a seed and review the diff.
"""

import pathlib
import sys

CORPORA = {
    "QzStepToWideFuzz": {
        "plain_text": b"Part 7 (left) - bracket",
        "x_bytes": b"caf\\X\\E9 \\X\\C9t\\X\\00",
        "x2_units": b"\\X2\\00E903A9D83DDE00\\X0\\ ok",
        "x4_code_points": b"\\X4\\0001F600000020AC0010FFFF\\X0\\",
        "x2_then_x4_unclosed": b"\\X2\\0041\\X4\\00010000",
        "pages_and_s": b"\\PE\\\\S\\0\\PG\\\\S\\A\\PO\\\\S\\$\\PL\\\\S\\A\\PA\\\\S\\i",
        "s_backslash": b"\\S\\\\\\S\\ ",
        "dropped_escapes": b"a\\Zb\\\\c\\",
        "controls_inside_escapes": b"\\X2\\00\r\n41\\X\t0\\\x80",
        "bad_lower_case": b"\\X\\e9",
        "bad_page_q": b"\\PQ\\",
        "bad_group_length": b"\\X2\\004\\X0\\",
        "bad_above_10ffff": b"\\X4\\00110000\\X0\\",
        "bad_x_form": b"\\X3\\",
    },
    "QzSevenBitFuzz": {
        "plain_text": b"abc XYZ ~!",
        "slashes": b"a//b////",
        "escapes": b"caf/00E9/D83D/DE00/FFFF",
        "controls": b"/0009/000A/007F",
        "raw_high_bytes": b"a\xe9\x01b",
        "bad_lower_case": b"/00e9",
        "bad_nul_unit": b"/0000",
        "bad_short": b"x/00E",
        # As UTF-16LE units: "/", U+00E9, U+D83D U+DE00.
        "units_little_endian": b"/\x00\xe9\x00\x3d\xd8\x00\xde",
    },
    "QzEncodeFuzz": {
        "hex_mixed_case": b"00ff7FaBcD",
        "hex_odd": b"ABC",
        "hex_bad_digit": b"0G",
        "escaped": b"a/20b/2Fc/ff",
        "escaped_cut": b"ab/4",
        "base64_rfc": b"Zm9vYmFy",
        "base64_padded": b"Zm9vYg==",
        "base64_unpadded": b"Zm8",
        "base64_plus_slash": b"+/8=",
        "base64_bad_bits": b"Zh==",
        "base64_bad_pad": b"Zg==Zg==",
        "binary_bytes": bytes(range(0, 256, 7)),
    },
}


def main():
    status = 0
    base = pathlib.Path(__file__).resolve().parent
    for target, seeds in CORPORA.items():
        out_dir = base / target
        out_dir.mkdir(exist_ok=True)
        for name, data in seeds.items():
            (out_dir / name).write_bytes(data)
        stale = sorted(p.name for p in out_dir.iterdir() if p.name not in seeds)
        if stale:
            print("%s: not made by this script: %s" % (target, ", ".join(stale)), file=sys.stderr)
            status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
