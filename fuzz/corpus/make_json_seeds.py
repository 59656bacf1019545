#!/usr/bin/env python3
"""Writes the seed corpus of QzJsonReadStreamFuzz into QzJsonReadStreamFuzz/
beside this script. Each seed aims at one rule of the JSON read stream: the
documents it takes and refuses, nesting, numbers beyond 32 and 53 bits,
escapes and raw bytes in strings, names that differ only in case, and the
Type/Version convention.

Run from anywhere: python3 fuzz/corpus/make_json_seeds.py
The output is committed; rerun after changing a seed and review the diff.
"""

import pathlib
import sys

SEEDS = {
    # One of each value type under names, with a nested object and array.
    "object_every_type": b'{"Name":"box","Count":3,"Ratio":0.5,"On":true,"Off":false,'
                         b'"None":null,"Tags":["a","b"],"Inner":{"x":1}}',
    # Versioned objects to peek at: whole, wrong types, without Type, no object.
    "versioned_objects": b'[{"Type":"Box","Version":3,"Size":2},{"type":"Cone","version":"1"},'
                         b'{"Version":1},5]',
    # Deep, within cJSON's nesting limit of 1000, and beyond it.
    "deep_nesting": b"[" * 300 + b"1" + b"]" * 300,
    "deep_objects": b'{"a":' * 120 + b"{}" + b"}" * 120,
    "too_deep": b"[" * 1100 + b"]" * 1100,
    # 2^53 + 1 as number and string, the 64-bit ends, overflow to infinity,
    # the smallest subnormal, the ends of the int range and just beyond.
    "big_numbers": b'[9007199254740993,"9007199254740993","18446744073709551615",'
                   b'"-9223372036854775808",1e308,-1e999,5e-324,2147483648,-2147483649,0.1]',
    # Escapes: BMP and a surrogate pair, the short forms, a lone surrogate,
    # an escaped nul that cuts the string.
    "escapes": b'["\\u00e9\\u20AC\\ud83d\\ude00","a\\nb\\t\\"\\\\\\/","\\ud800 lone",'
               b'"\\u0000 nul inside"]',
    # Raw bytes in strings: good UTF-8, bytes that are no UTF-8, an encoded
    # surrogate.
    "raw_utf8_and_bad_bytes": b'["\xc3\xa9\xe2\x82\xac","\xff\xfe bad","\xed\xa0\x80 surrogate"]',
    # Names equal but for case: the first one wins.
    "duplicate_names": b'{"key":1,"KEY":"two","Key":[3]}',
    "empty_containers": b'{"a":[],"b":{},"c":[[],{}]}',
    # Refused: a bare value, text after the document, cut short, a trailing comma.
    "bare_number": b"42",
    "trailing_text": b'{"a":1} x',
    "unclosed": b'{"a":[1,2,',
    "trailing_comma": b"[1,2,]",
    # Blanks of every kind around the values, and the literal values.
    "blanks_around": b" \n\t[ true , false , null ] \r\n",
}


def main():
    out_dir = pathlib.Path(__file__).resolve().parent / "QzJsonReadStreamFuzz"
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
