#include "KRCrypto/B64.hpp"
#include "KRCrypto/CryptoContext.hpp"
#include "KRCrypto/Derivation.hpp"
#include "KRCrypto/PairingKeyPair.hpp"
#include "KRCrypto/Random.hpp"
#include "KRCrypto/SealedBox.hpp"
#include "KRCrypto/internal/AesGcm.hpp"
#include "KRCrypto/internal/SystemRandom.hpp"
#include "tests/KRCrypto/Vectors.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <thread>

namespace KRCrypto::Tests {
namespace {

using Error = KRCryptoError;

TEST(Errors, SayTheirExactSentences) {
    const std::pair<Error::Case, std::string_view> table[] = {
        {Error::UnsupportedVersion{255}, "Unsupported sealed-box version 255"},
        {Error::InvalidKeyLength{33}, "Invalid key length 33"},
        {Error::Argon2{-14, "too little"}, "Argon2 error -14: too little"},
        {Error::HashMismatch{std::string(24, 'a'), std::string(24, 'b')},
         "Integrity check failed (expected aaaaaaaaaaaa…, got bbbbbbbbbbbb…)"},
        {Error::HashMismatch{"äöüäöüäöüäöüäöü", "ab"},
         "Integrity check failed (expected äöüäöüäöüäöü…, got ab…)"},
        {Error::MalformedSealed{}, "Malformed sealed box"},
        {Error::AuthenticationFailed{}, "Decryption failed (wrong key or tampered data)"},
        {Error::InvalidRecoveryCode{}, "Invalid recovery code"},
        {Error::InvalidEncoding{}, "Invalid encoding"},
        {Error::InvalidFragment{}, "Invalid link key fragment"},
        {Error::InvalidMeta{}, "Invalid metadata"},
        {Error::SizeMismatch{}, "Size mismatch"},
        {Error::FileChangedDuringRead{}, "File changed while it was being read"},
        {Error::InvalidChunkIndex{}, "Invalid chunk index"},
        {Error::InvalidPublicKey{}, "Invalid public key"},
        {Error::InvalidPassword{}, "A link password and its salt must both be present (and non-empty)"},
        {Error::QuickSendTooLarge{}, "Quick Send item is too large"},
    };
    for (const auto& [value, sentence] : table) {
        EXPECT_EQ(Error(value).what(), sentence);
        for (const auto& [other, otherSentence] : table) {
            EXPECT_EQ(Error(value) == Error(other), sentence == otherSentence);
        }
    }
}

TEST(PublishedVectors, AesGcmOpensAndRefuses) {
    for (const auto& v : rows("published/aes-gcm")) {
        SCOPED_TRACE(text(v, "name"));
        const Bytes iv = bytes(v, "iv");
        const Bytes ciphertext = bytes(v, "ct");
        Bytes tag = bytes(v, "tag");
        const Bytes key = bytes(v, "key");
        Internal::AesGcm cipher(key);
        Bytes plaintext(ciphertext.size(), 0xEE);
        const auto open = [&] {
            cipher.open(ByteView(iv).first<gcmIVSize>(), bytes(v, "aad"), ciphertext,
                        ByteView(tag).first<gcmTagSize>(), plaintext);
            return 0;
        };
        if (!v.at("valid").as_bool()) {
            EXPECT_EQ(failureOf(open), authenticationFailed);
            EXPECT_EQ(plaintext, Bytes(ciphertext.size(), 0)) << "plaintext is left behind";
            continue;
        }
        EXPECT_EQ(failureOf(open), "");
        EXPECT_EQ(plaintext, bytes(v, "pt"));
        cipher.seal(ByteView(iv).first<gcmIVSize>(), bytes(v, "aad"), plaintext, plaintext.data(),
                    MutableBytes(tag).first<gcmTagSize>());
        EXPECT_EQ(plaintext, ciphertext);
        EXPECT_EQ(tag, bytes(v, "tag"));
    }
}

TEST(PublishedVectors, DerivationsAndKeyAgreement) {
    for (const auto& v : rows("published/hkdf")) {
        const auto length = static_cast<std::size_t>(number(v, "length"));
        EXPECT_EQ(hkdf(bytes(v, "ikm"), bytes(v, "info"), length, bytes(v, "salt")),
                  SecretBytes::copyOf(bytes(v, "okm")))
            << text(v, "name");
    }
    for (const auto& v : rows("published/hmac")) {
        EXPECT_TRUE(hexString(hmacSHA256(bytes(v, "key"), bytes(v, "data"))).starts_with(text(v, "mac")))
            << text(v, "name");
    }
    for (const auto& v : rows("published/x25519")) {
        const auto agree = [&] { return sharedSecret(bytes(v, "private"), bytes(v, "public")); };
        if (text(v, "shared").empty()) {
            EXPECT_EQ(failureOf(agree), "Invalid public key") << text(v, "name");
        } else {
            EXPECT_EQ(agree(), SecretBytes::copyOf(bytes(v, "shared"))) << text(v, "name");
        }
    }
}

TEST(Derivation, TakesEmptyInputsAndStopsAtTheLimit) {
    // HMAC-SHA-256 of nothing under the empty key.
    EXPECT_EQ(hexString(hmacSHA256({}, {})),
              "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad");
    EXPECT_EQ(hkdf({}, "", 32), hkdf({}, "", 32, Bytes(32, 0)));
    EXPECT_EQ(hkdf({}, std::string(5000, 'x'), 8160).size(), 8160U);
    EXPECT_EQ(failureOf([] { return hkdf({}, "", 8161); }), "Size mismatch");
}

TEST(SealedBox, GoldenBoxesOpenAndFreshOnesHaveTheirLayout) {
    for (const auto& v : rows("golden/boxes")) {
        const Bytes key = bytes(v, "key");
        const Bytes plaintext = bytes(v, "plaintext");
        EXPECT_EQ(open(key, bytes(v, "sealed"), text(v, "aad")), plaintext);
        SealingKey kept(key);
        EXPECT_EQ(kept.open(bytes(v, "sealed"), text(v, "aad")), plaintext);
        const Bytes box = kept.seal(plaintext, "x");
        EXPECT_EQ(box.size(), plaintext.size() + 29);
        EXPECT_EQ(box[0], 1);
        EXPECT_NE(box, seal(key, plaintext, "x"));
        EXPECT_EQ(open(key, box, "x"), plaintext);
        EXPECT_EQ(failureOf([&] { return open(key, box, "X"); }), authenticationFailed);
        EXPECT_EQ(firstUnnoticedFlip(box, [&](ByteView b) { return open(key, b, "x"); }), "");
        for (std::size_t bit = 0; bit < 256; ++bit) {
            Bytes otherKey = key;
            otherKey[bit / 8] ^= static_cast<std::uint8_t>(1U << (bit % 8));
            ASSERT_EQ(failureOf([&] { return open(otherKey, box, "x"); }), authenticationFailed);
        }
    }
}

TEST(SealedBox, RefusesMalformedInputInTheOrderOfItsChecks) {
    const Bytes key(32);

    const struct {
        std::size_t keySize;
        Bytes sealed;
        std::string_view sentence;
    } table[] = {
        {16, {}, "Malformed sealed box"},
        {16, {2}, "Unsupported sealed-box version 2"},
        {32, Bytes(4000, 2), "Unsupported sealed-box version 2"},
        {32, {0}, "Unsupported sealed-box version 0"},
        {16, {1}, "Malformed sealed box"},
        {32, Bytes(28, 1), "Malformed sealed box"},
        {33, Bytes(29, 1), "Invalid key length 33"},
        {0, Bytes(29, 1), "Invalid key length 0"},
        {32, Bytes(29, 1), authenticationFailed},
    };

    for (const auto& row : table) {
        const Bytes rowKey(row.keySize);
        EXPECT_EQ(failureOf([&] { return open(rowKey, row.sealed, ""); }), row.sentence);
        EXPECT_EQ(failureOf([&] { return openSecret(rowKey, row.sealed, ""); }), row.sentence);
    }
    EXPECT_EQ(failureOf([] { return seal(Bytes(16), {}, ""); }), "Invalid key length 16");
    Bytes small(28);
    EXPECT_EQ(failureOf([&] { return sealInto(key, {}, "", small); }), "Size mismatch");
    EXPECT_EQ(failureOf([&] { return openInto(key, seal(key, Bytes(29), ""), "", small); }), "Size mismatch");
}

TEST(SealedBox, FailedOpeningLeavesNothingInTheKeptBuffer) {
    const Bytes key(32);
    Bytes out(64, 0xEE);
    const Bytes box = flipped(seal(key, Bytes(40, 0x55), "x"), 60);
    EXPECT_EQ(failureOf([&] { return openInto(key, box, "x", out); }), authenticationFailed);
    EXPECT_EQ(std::ranges::count(out, 0), 40);
    EXPECT_EQ(std::ranges::count(out, 0xEE), 24);
}

std::set<Bytes> nonces(int count) {
    std::set<Bytes> found;
    for (int i = 0; i < count; ++i) {
        Bytes nonce(gcmIVSize);
        Internal::fillNonce(MutableBytes(nonce).first<gcmIVSize>());
        found.insert(nonce);
    }
    return found;
}

TEST(Nonces, NeverRepeatAcrossRefillsThreadsAndForks) {
    constexpr int count = 1000;
    std::set<Bytes> all = nonces(count);
    std::thread([&] { all.merge(nonces(count)); }).join();

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        for (const Bytes& nonce : nonces(count)) {
            if (write(ends[1], nonce.data(), nonce.size()) != static_cast<ssize_t>(nonce.size())) {
                _exit(1);
            }
        }
        _exit(0);
    }
    close(ends[1]);
    all.merge(nonces(count));
    for (int i = 0; i < count; ++i) {
        Bytes nonce(gcmIVSize);
        ASSERT_EQ(read(ends[0], nonce.data(), nonce.size()), static_cast<ssize_t>(nonce.size()));
        all.insert(nonce);
    }
    close(ends[0]);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(all.size(), 4U * count);
}

TEST(RandomBytes, ComeFromTheGeneratorWhenTheSystemRefuses) {
    Bytes out(40);
    const auto refuses = [](MutableBytes) { return false; };
    Internal::fillRandom(out, refuses, Internal::generatedRandom);
    EXPECT_LT(std::ranges::count(out, 0), 10);
    EXPECT_TRUE(randomBytes(0).empty());
    EXPECT_DEATH(Internal::fillRandom(out, refuses, refuses), "No source of random bytes");
}

TEST(Encodings, Base64DecodesWhatItShouldAndNothingElse) {
    const struct {
        std::string_view text;
        std::string_view standard; // hex, or "-" for refused
        std::string_view url;
    } table[] = {
        {"", "", ""},
        {"QQ", "41", "41"},
        {"QQ==", "41", "41"},
        {"QUI", "4142", "4142"},
        {"QUI=", "4142", "4142"},
        {"QUJD", "414243", "414243"},
        {"Q", "-", "-"},
        {"QQ=", "-", "41"},
        {"QR", "41", "41"},
        {"QQ===", "-", "-"},
        {"=", "-", "-"},
        {"====", "-", "-"},
        {"Q===", "-", "-"},
        {"QQ==QQ==", "-", "-"},
        {"Q=Q=", "-", "-"},
        {"-_8", "-", "fbff"},
        {"+/8", "fbff", "fbff"},
        {"+/8=", "fbff", "fbff"},
        {"Q Q=", "-", "-"},
        {"QUJD\n", "-", "-"},
        {std::string_view("QQ\0A", 4), "-", "-"},
        {"Qé", "-", "-"},
        {"QUJDQ", "-", "-"},
    };

    const auto shown = [](auto decode, std::string_view text) {
        std::string result = "-";
        EXPECT_EQ(failureOf([&] { return result = hexString(decode(text)); }),
                  result == "-" ? "Invalid encoding" : "");
        return result;
    };
    for (const auto& row : table) {
        EXPECT_EQ(shown(B64::decode, row.text), row.standard) << row.text;
        EXPECT_EQ(shown(B64::decodeURL, row.text), row.url) << row.text;
        EXPECT_EQ(shown(B64::decodeSecretURL, row.text), row.url) << row.text;
    }
    EXPECT_EQ(base64URLString(Bytes{0xFB, 0xFF}), "-_8");
    Bytes data;
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(B64::decode(B64::encode(data)), data);
        EXPECT_EQ(B64::encode(data).size() % 4, 0U);
        EXPECT_EQ(B64::decodeURL(B64::encodeURL(data)), data);
        EXPECT_EQ(B64::encodeSecretURL(data).text(), B64::encodeURL(data));
        data.push_back(static_cast<std::uint8_t>(i * 151));
    }
}

TEST(Encodings, HexReadsBothCasesAndWritesLower) {
    EXPECT_EQ(hexString(Bytes{0x00, 0xAB}), "00ab");
    EXPECT_EQ(Hex::decode("00aBFf"), (Bytes{0x00, 0xAB, 0xFF}));
    for (const std::string_view bad : {"0", "0g", "g0", " 0", "0x", "/0", ":0", "@0", "`0", "00\n"}) {
        EXPECT_EQ(failureOf([&] { return Hex::decode(bad); }), "Invalid encoding") << bad;
    }
}

} // namespace
} // namespace KRCrypto::Tests
