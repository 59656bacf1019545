// QzEncode.h: byte encodings as 7-bit text: hexadecimal, hexadecimal
// escapes of all but letters and digits, and Base64.
#pragma once

#include "qzutil/frame/QzExport.h"

class QzComponent;
class QzStringBuffer;

// Stateless encoders and decoders of byte arrays.
//
// Each Encode... replaces the content of `out` with the encoding of `size`
// bytes at `data`; a negative size, or a null `data` with a positive size,
// releases `out`; a size of 0 gives the empty text; a null `out` is ignored.
// Each Decode... writes the bytes of `text` into `out`, which holds
// `out_size` bytes, and returns how many it wrote, or -1 for a null text,
// text that is no such encoding, or more bytes than `out_size`. After -1 the
// content of `out` is unspecified (a prefix may have been written). With a
// null `out` nothing is written and the result is the count alone.
//
// Threads:   all reentrant.
// Lifetime:  a counted component without dependencies; the text buffers
//            need QzString::Initialise.
class QZUTIL_API QzEncode {
public:
    static void Initialise();
    static void Terminate();
    static bool IsInitialised();
    static QzComponent *GetComponent();

    // Two upper-case digits a byte ("%02X").
    static void EncodeHex(unsigned char const *data, int size, QzStringBuffer *out);
    // Takes digits of either case. -1 also for text of odd length, whatever
    // `out`; with a null `out` the result is half the length, unchecked.
    static int DecodeHex(char const *text, unsigned char *out, int out_size);

    // ASCII letters and digits stand for themselves; any other byte is "/"
    // and two upper-case digits ("a b" is "a/20b").
    static void EncodeHexEscaped(unsigned char const *data, int size, QzStringBuffer *out);
    // Every byte other than "/" stands for itself; "/" is followed by two
    // digits of either case, anything else there gives -1. A "/" with fewer
    // than two characters after it ends the text: the result is the count
    // before it. With a null `out` the text is still checked.
    static int DecodeHexEscaped(char const *text, unsigned char *out, int out_size);

    // The standard alphabet A-Z a-z 0-9 + /, padded with "=" to a multiple
    // of four characters.
    static void EncodeBase64(unsigned char const *data, int size, QzStringBuffer *out);
    // Takes the text with its padding or without any; a text with padding
    // must be a multiple of four characters long. -1 for any character
    // outside the alphabet (white space too), "=" anywhere but in the last
    // two places, a last group of one character, or unused bits of the last
    // group that are not zero: each byte string has exactly one encoding.
    // With a null `out` the text is still checked.
    static int DecodeBase64(char const *text, unsigned char *out, int out_size);

private:
    static QzComponent m_component;
};
