#!/usr/bin/env python3
"""Writes the seed corpus of QzTextDecodeFuzz into QzTextDecodeFuzz/ beside
this script. Each seed aims at one branch of the text readers; the bytes are
spelled out by hand so that the seeds do not depend on any codec.

Run from anywhere: python3 fuzz/corpus/make_text_seeds.py
The output is committed; rerun after changing a seed and review the diff.
"""

import pathlib
import sys

# name -> bytes. The fuzz target splits an input in halves for the natural
# order, so the order seeds are laid out as two texts of equal byte length.
SEEDS = {
    # One character of each sequence length: A, e-acute, euro sign, U+1F600.
    "valid_each_length": b"A \xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80",
    # First and last value of each length: U+0080, U+07FF, U+0800, U+FFFD,
    # U+10000, U+10FFFF.
    "valid_length_boundaries": b"\xc2\x80\xdf\xbf\xe0\xa0\x80\xef\xbf\xbd"
                               b"\xf0\x90\x80\x80\xf4\x8f\xbf\xbf",
    # Overlong forms of NUL, '/' and U+07FF/U+FFFF, for each length.
    "overlong_forms": b"\xc0\x80|\xc1\xbf|\xe0\x80\xaf|\xe0\x9f\xbf|\xf0\x80\x80\xaf|"
                      b"\xf0\x8f\xbf\xbf",
    # Lone surrogates encoded as three bytes: U+D800, U+DBFF, U+DC00, U+DFFF.
    "surrogates_lone": b"\xed\xa0\x80 \xed\xaf\xbf \xed\xb0\x80 \xed\xbf\xbf",
    # U+1F600 as an encoded surrogate pair (D83D DE00), not as four bytes.
    "surrogates_pair_encoded": b"\xed\xa0\xbd\xed\xb8\x80",
    # Sequences cut short, then by the end of the text: C3, E2 82, F0 9F 98.
    "truncated_sequences": b"\xc3x\xe2\x82y\xf0\x9f\x98z\xf0\x9f\x98",
    # A cut sequence whose breaking byte is ASCII: E2 82 then 'A'.
    "broken_then_ascii": b"\xe2\x82A\xe2\x82\xac",
    # The noncharacters U+FFFE and U+FFFF between valid text.
    "nonchar_fffe_ffff": b"a\xef\xbf\xbeb\xef\xbf\xbfc",
    # Above U+10FFFF: F4 90 80 80 is U+110000; F5 to F7 lead five-byte values.
    "beyond_10ffff": b"\xf4\x90\x80\x80 \xf5\x80\x80\x80 \xf7\xbf\xbf\xbf",
    # Bytes that never occur in UTF-8.
    "bytes_f8_to_ff": bytes(range(0xF8, 0x100)),
    # Continuation bytes with no lead.
    "stray_continuations": b"\x80\xbf a \x8f",
    # A NUL inside: only the text before it is read.
    "embedded_nul": b"abc\x00\xc3\xa9\xff",
    # Natural order: "item9_" against "item10" (digit runs by value).
    "order_digit_runs": b"item9_item10",
    # Natural order: "a01" against "a1." (runs starting with 0 as fractions).
    "order_leading_zero": b"a01a1.",
    # Natural order: "x" U+0130 "9" against "x019"; U+0130 ends in the byte
    # of '0', so it counts as a digit.
    "order_low_byte_digits": b"x\xc4\xb09x019",
    # Numbers: blanks around a float, hex, a lone sign, an int beyond range.
    "number_float_blanks": b" 1.5e3 ",
    "number_hex": b"0x10",
    "number_lone_minus": b"-",
    "number_int_overflow": b"\t-99999999999\n",
    # Only blanks, of every kind the trims know.
    "blanks_only": b" \t\n\v\f\r ",
}


def main():
    out_dir = pathlib.Path(__file__).resolve().parent / "QzTextDecodeFuzz"
    out_dir.mkdir(exist_ok=True)
    for name, data in SEEDS.items():
        (out_dir / name).write_bytes(data)
    stale = sorted(p.name for p in out_dir.iterdir() if p.name not in SEEDS)
    if stale:
        print("not made by this script:", ", ".join(stale), file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
