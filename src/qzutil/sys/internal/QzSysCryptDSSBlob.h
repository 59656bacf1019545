// QzSysCryptDSSBlob.h: the layout of DSS key blobs and of DSA signatures,
// shared by the portable parser and the platform's key import. Internal:
// never installed.
#pragma once

// Class of statics over bytes; any thread.
class QzSysCryptDSSBlob {
public:
    static constexpr unsigned kSubprimeBytes = 20;                   // q, x, and each of r and s
    static constexpr unsigned kSignatureBytes = 2 * kSubprimeBytes;  // r then s

    enum Kind : int {
        ePUBLIC,   // type 6, "DSS1": p, q, g, y
        ePRIVATE,  // type 7, "DSS2": p, q, g, x
    };

    // The numbers of a blob: little-endian, pointing into the blob (borrowed).
    struct Parts {
        unsigned char const *m_prime;     // p, m_prime_bytes
        unsigned char const *m_subprime;  // q, kSubprimeBytes
        unsigned char const *m_base;      // g, m_prime_bytes
        unsigned char const *m_key;       // y (m_prime_bytes) or x (kSubprimeBytes)
        unsigned m_prime_bytes;
        unsigned m_key_bytes;
    };

    // True with *parts filled when `blob` is exactly one well-formed blob of
    // that kind (header, magic, bit length, size); false otherwise, with
    // *parts unspecified.
    [[nodiscard]] static bool Parse(void const *blob, unsigned size, Kind kind, Parts *parts);
};
