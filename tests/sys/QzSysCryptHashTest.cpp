// QzSysCryptHash: the published SHA-1 and SHA-256 vectors, whole and fed in
// pieces; DSS key blobs built by hand from a key that OpenSSL makes;
// signatures made here and by OpenSSL; and the log lines of refused keys
// and calls.

#include "qzutil/sys/QzSysCryptHash.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/dsa.h>
#include <openssl/evp.h>

#include "qzutil/frame/QzSysError.h"

#include "support/QzTestSupport.h"

using Bytes = std::vector<unsigned char>;

// The value of `data` added in pieces whose sizes cycle through `pieces`,
// in lower-case hex.
static std::string HashInPieces(QzSysCryptHash::HashType type, std::string const &data,
                                std::vector<std::size_t> const &pieces)
{
    QzSysCryptHashHandle *handle = QzSysCryptHash::Create(type);
    if (handle == nullptr)
        return "no handle";
    for (std::size_t i = 0, offset = 0; offset < data.size(); ++i) {
        std::size_t const piece = std::min(pieces[i % pieces.size()], data.size() - offset);
        EXPECT_EQ(QzSysCryptHash::AddData(handle, data.data() + offset, unsigned(piece)), 1);
        offset += piece;
    }
    Bytes value(unsigned(QzSysCryptHash::GetHashSizeInBytes(handle)));
    EXPECT_EQ(QzSysCryptHash::GenerateAndDestroy(handle, value.data(), unsigned(value.size())), 1);
    std::string hex;
    for (unsigned char byte : value) {
        hex += "0123456789abcdef"[byte >> 4];
        hex += "0123456789abcdef"[byte & 0xF];
    }
    return hex;
}

// True when the log holds "<call> failed: <reason>\n", the reason a number.
static bool LoggedFailure(char const *call)
{
    std::string const log = ReplayLog();
    std::string const prefix = std::string(call) + " failed: ";
    std::size_t const at = log.find(prefix);
    if (at == std::string::npos)
        return false;
    std::size_t const digits = at + prefix.size();
    std::size_t const end = log.find_first_not_of("-0123456789", digits);
    return end != std::string::npos && end > digits && log[end] == '\n';
}

class QzSysCryptHashTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QzSysCryptHash::Initialise();
        QzSysError::ClearLogBuffer();
    }
    void TearDown() override
    {
        QzSysCryptHash::Terminate();
        EXPECT_EQ(QzSysError::GetFirstComponent(), nullptr);
    }
};

// Published vectors (FIPS 180 examples; the empty string; a million 'a'),
// whole and in pieces on both sides of the 64-byte block, and odd ones.
TEST_F(QzSysCryptHashTest, DigestsMatchPublishedValuesWholeAndInPieces)
{
    std::string const million(1000000, 'a');
    auto const sha1 = QzSysCryptHash::eSHA1, sha256 = QzSysCryptHash::eSHA256;
    struct Case {
        char const *name;
        QzSysCryptHash::HashType type;
        std::string data;
        char const *hex;
    };
    Case const cases[] = {
        {"sha1_abc", sha1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"sha1_empty", sha1, "", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"sha1_million_a", sha1, million, "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
        {"sha256_abc", sha256, "abc",
         "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"sha256_empty", sha256, "",
         "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"sha256_million_a", sha256, million,
         "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(HashInPieces(c.type, c.data, {c.data.size() + 1}), c.hex);
        EXPECT_EQ(HashInPieces(c.type, c.data, {1, 63, 64, 65, 7, 1000}), c.hex);
    }
}

TEST_F(QzSysCryptHashTest, SizesAndRefusals)
{
    QzSysCryptHashHandle *sha1 = QzSysCryptHash::Create(QzSysCryptHash::eSHA1);
    QzSysCryptHashHandle *sha256 = QzSysCryptHash::Create(QzSysCryptHash::eSHA256);
    EXPECT_EQ(QzSysCryptHash::GetHashSizeInBytes(sha1), 20);
    EXPECT_EQ(QzSysCryptHash::GetHashSizeInBytes(sha256), 32);
    EXPECT_EQ(QzSysCryptHash::GetDSASignatureSizeInBytes(sha1), 0);
    QzSysCryptHash::Destroy(sha1);
    unsigned char value[32];
    EXPECT_EQ(QzSysCryptHash::GenerateAndDestroy(sha256, value, 31), 0) << "one byte short";
    EXPECT_TRUE(LoggedFailure("CryptGetHashParam"));
    QzSysError::ClearLogBuffer();
    EXPECT_EQ(QzSysCryptHash::Create(static_cast<QzSysCryptHash::HashType>(2)), nullptr);
    EXPECT_TRUE(LoggedFailure("CryptCreateHash"));
}

TEST(QzSysCryptHashLifetimeTest, CreateFailsWithoutInitialise)
{
    QzSysError::ClearLogBuffer();
    EXPECT_EQ(QzSysCryptHash::Create(QzSysCryptHash::eSHA1), nullptr);
    EXPECT_TRUE(LoggedFailure("CryptCreateHash"));
}

// A 1024-bit DSA key with a 160-bit q, made once for the suite.
static EVP_PKEY *g_key;

static EVP_PKEY *GenerateDSAKey()
{
    EVP_PKEY_CTX *param_maker = EVP_PKEY_CTX_new_from_name(nullptr, "DSA", nullptr);
    EVP_PKEY *params = nullptr;
    bool const ok = param_maker != nullptr && EVP_PKEY_paramgen_init(param_maker) == 1 &&
                    EVP_PKEY_CTX_set_dsa_paramgen_bits(param_maker, 1024) == 1 &&
                    EVP_PKEY_CTX_set_dsa_paramgen_q_bits(param_maker, 160) == 1 &&
                    EVP_PKEY_paramgen(param_maker, &params) == 1;
    EVP_PKEY_CTX_free(param_maker);
    EVP_PKEY_CTX *key_maker = ok ? EVP_PKEY_CTX_new_from_pkey(nullptr, params, nullptr) : nullptr;
    EVP_PKEY *key = nullptr;
    if (key_maker == nullptr || EVP_PKEY_keygen_init(key_maker) != 1 ||
        EVP_PKEY_keygen(key_maker, &key) != 1)
        key = nullptr;
    EVP_PKEY_CTX_free(key_maker);
    EVP_PKEY_free(params);
    return key;
}

// Appends `value` little-endian in `bytes` bytes.
static void AppendLittleEndian(Bytes *out, BIGNUM const *value, int bytes)
{
    std::size_t const at = out->size();
    out->resize(at + std::size_t(bytes));
    EXPECT_EQ(BN_bn2lebinpad(value, out->data() + at, bytes), bytes);
}

// Appends the key's number `name` little-endian in `bytes` bytes.
static void AppendNumber(Bytes *out, char const *name, int bytes)
{
    BIGNUM *number = nullptr;
    ASSERT_EQ(EVP_PKEY_get_bn_param(g_key, name, &number), 1) << name;
    AppendLittleEndian(out, number, bytes);
    BN_clear_free(number);
}

// The key as a blob in the documented layout: the 16-byte header as literal
// bytes (bit length 1,024), the numbers, then a seed record of no seed.
static Bytes MakeBlob(bool is_private)
{
    unsigned char const type = is_private ? 7 : 6, magic = is_private ? '2' : '1';
    Bytes blob = {type, 2, 0, 0, 0x00, 0x22, 0, 0, 'D', 'S', 'S', magic, 0x00, 0x04, 0, 0};
    AppendNumber(&blob, OSSL_PKEY_PARAM_FFC_P, 128);
    AppendNumber(&blob, OSSL_PKEY_PARAM_FFC_Q, 20);
    AppendNumber(&blob, OSSL_PKEY_PARAM_FFC_G, 128);
    if (is_private)
        AppendNumber(&blob, OSSL_PKEY_PARAM_PRIV_KEY, 20);
    else
        AppendNumber(&blob, OSSL_PKEY_PARAM_PUB_KEY, 128);
    blob.insert(blob.end(), 4, 0xFF);  // counter: no seed
    blob.resize(blob.size() + 20);
    return blob;
}

// OpenSSL's own DSA with SHA-1 over `data`, in the 40-byte form; empty if
// OpenSSL fails.
static Bytes OpenSSLSign(std::string const &data)
{
    EVP_MD_CTX *signer = EVP_MD_CTX_new();
    unsigned char der[64];
    std::size_t der_size = sizeof der;
    Bytes signature;
    if (EVP_DigestSignInit(signer, nullptr, EVP_sha1(), nullptr, g_key) == 1 &&
        EVP_DigestSign(signer, der, &der_size, reinterpret_cast<unsigned char const *>(data.data()),
                       data.size()) == 1) {
        unsigned char const *cursor = der;
        DSA_SIG *parsed = d2i_DSA_SIG(nullptr, &cursor, static_cast<int>(der_size));
        BIGNUM const *r = nullptr;
        BIGNUM const *s = nullptr;
        DSA_SIG_get0(parsed, &r, &s);
        AppendLittleEndian(&signature, r, 20);
        AppendLittleEndian(&signature, s, 20);
        DSA_SIG_free(parsed);
    }
    EVP_MD_CTX_free(signer);
    return signature;
}

class QzSysCryptSignTest : public QzSysCryptHashTest {
protected:
    static void SetUpTestSuite() { g_key = GenerateDSAKey(); }
    static void TearDownTestSuite() { EVP_PKEY_free(g_key); }

    void SetUp() override
    {
        ASSERT_NE(g_key, nullptr);
        QzSysCryptHashTest::SetUp();
        m_context = QzSysCryptHash::CreateDSASignContext();
        ASSERT_NE(m_context, nullptr);
    }
    void TearDown() override
    {
        QzSysCryptHash::DestroyDSASignContext(m_context);
        QzSysCryptHashTest::TearDown();
    }

    int SetKey(bool as_private, Bytes const &blob)
    {
        auto set = as_private ? QzSysCryptHash::SetDSAPrivateKey : QzSysCryptHash::SetDSAPublicKey;
        return set(m_context, blob.data(), unsigned(blob.size()));
    }

    // Signs `data` with the context's signing key; empty on failure.
    Bytes Sign(std::string const &data)
    {
        QzSysCryptHashHandle *hash = QzSysCryptHash::CreateDSASignHash(m_context);
        EXPECT_EQ(QzSysCryptHash::GetDSASignatureSizeInBytes(hash), 40);
        QzSysCryptHash::AddData(hash, data.data(), unsigned(data.size()));
        Bytes signature(40);
        if (!QzSysCryptHash::DSASignHashAndDestroy(hash, signature.data(), 40))
            signature.clear();
        return signature;
    }

    QzSysCryptHash::VerifyResult Verify(std::string const &data, Bytes const &signature)
    {
        QzSysCryptHashHandle *hash = QzSysCryptHash::CreateDSAVerifyHash(m_context);
        QzSysCryptHash::AddData(hash, data.data(), unsigned(data.size()));
        return QzSysCryptHash::DSAVerifyHashAndDestroy(hash, signature.data(),
                                                       unsigned(signature.size()));
    }

    QzSysCryptSignContext *m_context = nullptr;
};

// Signed with the private blob, verified with the public blob; a signature
// that OpenSSL makes verifies too, so r and s lie in the order and byte
// order of the documented form, not merely one that agrees with itself.
// Any change to the data or to either number breaks the signature.
TEST_F(QzSysCryptSignTest, SignsWithPrivateBlobAndVerifiesWithPublicBlob)
{
    ASSERT_EQ(SetKey(true, MakeBlob(true)), 1);
    ASSERT_EQ(SetKey(false, MakeBlob(false)), 1);
    EXPECT_NE(QzSysCryptHash::CanContextSign(m_context), 0);
    std::string const data = "signed content";
    Bytes const signature = Sign(data);
    ASSERT_EQ(signature.size(), 40u);
    EXPECT_EQ(Verify(data, signature), QzSysCryptHash::eVERIFY_OK);
    EXPECT_EQ(Verify(data, OpenSSLSign(data)), QzSysCryptHash::eVERIFY_OK);

    EXPECT_EQ(Verify("signed contenT", signature), QzSysCryptHash::eVERIFY_BAD_SIGNATURE);
    for (int at : {0, 19, 20, 39}) {
        Bytes changed = signature;
        changed[std::size_t(at)] ^= 0x01;
        EXPECT_EQ(Verify(data, changed), QzSysCryptHash::eVERIFY_BAD_SIGNATURE) << "byte " << at;
    }
    Bytes const short_signature(signature.begin(), signature.end() - 1);
    EXPECT_EQ(Verify(data, short_signature), QzSysCryptHash::eVERIFY_ERROR);
}

// Blobs derived from the good public one, given to SetDSAPublicKey or
// SetDSAPrivateKey, are refused with a log line; the keys set before stay.
TEST_F(QzSysCryptSignTest, MalformedBlobsAreRefusedAndLogged)
{
    ASSERT_EQ(SetKey(true, MakeBlob(true)), 1);
    ASSERT_EQ(SetKey(false, MakeBlob(false)), 1);
    struct Case {
        char const *name;
        bool as_private;
        void (*spoil)(Bytes *blob);
    };
    Case const cases[] = {
        {"wrong_magic", false, [](Bytes *b) { (*b)[11] = '2'; }},
        {"wrong_type", false, [](Bytes *b) { (*b)[0] = 7; }},
        {"wrong_version", false, [](Bytes *b) { (*b)[1] = 3; }},
        {"wrong_algorithm", false, [](Bytes *b) { (*b)[5] = 0x24; }},
        {"bits_not_bytes", false, [](Bytes *b) { (*b)[12] = 4; }},
        {"one_byte_short", false, [](Bytes *b) { b->pop_back(); }},
        {"one_byte_long", false, [](Bytes *b) { b->push_back(0); }},
        {"header_only", false, [](Bytes *b) { b->resize(16); }},
        {"public_blob_as_private", true, [](Bytes *) {}},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        Bytes blob = MakeBlob(false);
        c.spoil(&blob);
        QzSysError::ClearLogBuffer();
        EXPECT_EQ(SetKey(c.as_private, blob), 0);
        EXPECT_TRUE(LoggedFailure("CryptImportKey"));
    }
    std::string const data = "still keyed";
    EXPECT_EQ(Verify(data, Sign(data)), QzSysCryptHash::eVERIFY_OK);
}

TEST_F(QzSysCryptSignTest, WithoutKeysNothingSignsOrVerifies)
{
    EXPECT_EQ(QzSysCryptHash::SetDSAPrivateKey(m_context, nullptr, 0), 0);
    EXPECT_TRUE(LoggedFailure("CryptGetUserKey"));
    EXPECT_EQ(QzSysCryptHash::CanContextSign(m_context), 0);
    QzSysError::ClearLogBuffer();
    EXPECT_TRUE(Sign("data").empty());
    EXPECT_TRUE(LoggedFailure("CryptSignHash"));
    EXPECT_EQ(Verify("data", Bytes(40)), QzSysCryptHash::eVERIFY_ERROR);
}
