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
#include <optional>
#include <set>
#include <thread>

namespace KRCrypto::Tests {
namespace {

using Error = KRCryptoError;
using Internal::AesGcm;

// The other sentences are asserted where the errors are met.
TEST(Errors, ShowTheStartOfHashesAndCompareThemWhole) {
    const std::string notHex = "…, got ab…)";
    const std::tuple<std::string, std::string, std::string> table[] = {
        {std::string(24, 'a'), std::string(24, 'b'), "aaaaaaaaaaaa…, got bbbbbbbbbbbb…)"},
        {"äöüäöüäöüäöüäöü", "ab", "äöüäöüäöüäöü" + notHex},
        {"a\xff" + std::string(1000, '\x80'), "ab",
         "a\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd" + notHex},
    };
    for (const auto& [expected, actual, sentence] : table) {
        const Error error(Error::HashMismatch{expected, actual});
        EXPECT_EQ(error.description(), "Integrity check failed (expected " + sentence);
        EXPECT_EQ(error, Error(Error::HashMismatch{expected, actual}));
        EXPECT_FALSE(error == Error(Error::HashMismatch{expected + "c", actual}));
        EXPECT_FALSE(error == Error(Error::SizeMismatch{}));
    }
}

// Used outside this core, so no vector holds them.
TEST(Labels, OfTheIndexesAreAsStored) {
    EXPECT_EQ(CryptoContext::localShareKey, "korvane/v1/local-share-key");
    EXPECT_EQ(CryptoContext::search, "korvane/v1/search");
    EXPECT_EQ(CryptoContext::searchBlind, "korvane/v1/search-blind");
    EXPECT_EQ(CryptoContext::searchDocument, "korvane/v1/search/doc/");
    EXPECT_EQ(CryptoContext::searchShard, "korvane/v1/search/shard/");
}

// Opens the row's ciphertext with a one-shot or a kept key.
Bytes opened(const Value& v, bool keeps, Bytes& out) {
    const Bytes key = bytes(v, "key");
    const Bytes iv = bytes(v, "iv");
    const Bytes aad = bytes(v, "aad");
    const Bytes ciphertext = bytes(v, "ct");
    const Bytes tag = bytes(v, "tag");
    out.assign(ciphertext.size(), 0xEE);
    const auto nonce = ByteView(iv).first<gcmIVSize>();
    if (keeps) {
        AesGcm(key).open(nonce, aad, ciphertext, ByteView(tag).first<gcmTagSize>(), out);
    } else {
        AesGcm::openOnce(key, nonce, aad, ciphertext, ByteView(tag).first<gcmTagSize>(), out);
    }
    return out;
}

TEST(AesGcm, OpensPublishedVectorsAndLeavesNothingOfForgedOnes) {
    Bytes out;
    for (const bool keeps : {false, true}) {
        for (const auto& v : rows("published/aes-gcm")) {
            EXPECT_EQ(opened(v, keeps, out), bytes(v, "pt")) << text(v, "name");
            Bytes tag(gcmTagSize);
            AesGcm::sealOnce(bytes(v, "key"), ByteView(bytes(v, "iv")).first<gcmIVSize>(), bytes(v, "aad"),
                             out, out.data(), MutableBytes(tag).first<gcmTagSize>());
            EXPECT_EQ(out, bytes(v, "ct")) << text(v, "name");
            EXPECT_EQ(tag, bytes(v, "tag")) << text(v, "name");
        }
        for (const auto& v : rows("cases/aes-gcm-forged")) {
            EXPECT_EQ(failureOf([&] { return opened(v, keeps, out); }), authenticationFailed)
                << text(v, "name");
            EXPECT_EQ(std::ranges::count(out, 0), std::ssize(out)) << text(v, "name");
        }
    }
}

TEST(Derivation, MatchesPublishedVectorsAndTakesEmptyInputs) {
    for (const auto& v : rows("published/hkdf")) {
        const auto length = static_cast<std::size_t>(number(v, "length"));
        EXPECT_EQ(hkdf(bytes(v, "ikm"), bytes(v, "info"), length, bytes(v, "salt")), secret(v, "okm"))
            << text(v, "name");
    }
    for (const auto& v : rows("published/hmac")) {
        std::string mac = hexString(hmacSHA256(bytes(v, "key"), bytes(v, "data")));
        mac.resize(v.as_object().contains("truncated") ? 32 : 64);
        EXPECT_EQ(mac, text(v, "mac")) << text(v, "name");
    }
    // HMAC-SHA-256 of nothing under the empty key.
    EXPECT_EQ(hexString(hmacSHA256({}, {})),
              "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad");
    EXPECT_EQ(hkdf({}, "", 32), hkdf({}, "", 32, Bytes(32, 0)));
    EXPECT_EQ(hkdf({}, "", 0).size(), 0U);
    EXPECT_EQ(hkdf({}, std::string(32768, 'x'), 8160).size(), 8160U);
    EXPECT_EQ(failureOf([] { return hkdf({}, std::string(32769, 'x'), 32); }), sizeMismatch);
    EXPECT_EQ(failureOf([] { return hkdf({}, "", 8161); }), sizeMismatch);
}

TEST(KeyAgreement, MatchesPublishedVectorsAndRefusesLowOrderInEveryEncoding) {
    for (const std::string_view file : {"published/x25519", "cases/x25519-encodings"}) {
        for (const auto& v : rows(file)) {
            const auto agree = [&] { return sharedSecret(bytes(v, "private"), bytes(v, "public")); };
            if (text(v, "shared").empty()) {
                EXPECT_EQ(failureOf(agree), invalidPublicKey) << text(v, "name");
            } else {
                EXPECT_EQ(agree(), secret(v, "shared")) << text(v, "name");
            }
        }
    }
}

TEST(SealedBox, GoldenBoxesOpenAndFreshOnesHaveTheirLayout) {
    for (const auto& v : rows("golden/boxes")) {
        const Bytes key = bytes(v, "key");
        const Bytes plaintext = bytes(v, "plaintext");
        SealingKey kept(key);
        EXPECT_EQ(open(key, bytes(v, "sealed"), text(v, "aad")), plaintext);
        EXPECT_EQ(kept.open(bytes(v, "sealed"), text(v, "aad")), plaintext);
        const Bytes box = kept.seal(plaintext, "x");
        EXPECT_EQ(box.size(), plaintext.size() + 29);
        EXPECT_EQ(box[0], 1);
        EXPECT_NE(box, seal(key, plaintext, "x"));
        EXPECT_EQ(open(key, box, "x"), plaintext);
        EXPECT_EQ(failureOf([&] { return open(key, box, "X"); }), authenticationFailed);
        for (std::size_t at = 0; at < key.size(); ++at) {
            EXPECT_EQ(failureOf([&] { return open(flipped(key, at), box, "x"); }), authenticationFailed);
        }
    }
}

TEST(SealedBox, RefusesMalformedInputInTheOrderOfItsChecks) {
    const std::tuple<std::size_t, Bytes, std::string_view> table[] = {
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
    for (const auto& [keyLength, sealed, sentence] : table) {
        const Bytes key(keyLength);
        EXPECT_EQ(failureOf([&] { return open(key, sealed, ""); }), sentence);
        EXPECT_EQ(failureOf([&] { return openSecret(key, sealed, ""); }), sentence);
    }
    const Bytes key(32);
    Bytes small(28);
    EXPECT_EQ(failureOf([] { return seal(Bytes(16), {}, ""); }), "Invalid key length 16");
    EXPECT_EQ(failureOf([&] { return sealInto(key, {}, "", small); }), sizeMismatch);
    EXPECT_EQ(failureOf([&] { return openInto(key, seal(key, Bytes(29), ""), "", small); }), sizeMismatch);

    Bytes out(64, 0xEE);
    const Bytes forged = flipped(seal(key, Bytes(40, 0x55), "x"), 60);
    EXPECT_EQ(failureOf([&] { return openInto(key, forged, "x", out); }), authenticationFailed);
    EXPECT_EQ(std::ranges::count(out, 0), 40) << "plaintext is left behind";
    EXPECT_EQ(std::ranges::count(out, 0xEE), 24);
}

std::set<Bytes> nonces(int count) {
    std::set<Bytes> found;
    Bytes nonce(gcmIVSize);
    for (int i = 0; i < count; ++i) {
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
    Bytes drawn(count * gcmIVSize); // less than a pipe holds
    if (child == 0) {
        for (std::size_t at = 0; at < drawn.size(); at += gcmIVSize) {
            Internal::fillNonce(MutableBytes(drawn).subspan(at).first<gcmIVSize>());
        }
        _exit(write(ends[1], drawn.data(), drawn.size()) == std::ssize(drawn) ? 0 : 1);
    }
    all.merge(nonces(count));
    int status = 1;
    waitpid(child, &status, 0);
    ASSERT_EQ(status, 0);
    ASSERT_EQ(read(ends[0], drawn.data(), drawn.size()), std::ssize(drawn));
    for (auto at = drawn.begin(); at != drawn.end(); at += gcmIVSize) {
        all.emplace(at, at + gcmIVSize);
    }
    close(ends[0]);
    close(ends[1]);
    EXPECT_EQ(all.size(), 4U * count);
}

// Made before the thread's first nonce, so destroyed after its stock of them.
struct AtThreadEnd {
    std::set<Bytes>* found = nullptr;

    AtThreadEnd() = default;

    ~AtThreadEnd() { *found = nonces(100); }

    AtThreadEnd(const AtThreadEnd&) = delete;
    AtThreadEnd& operator=(const AtThreadEnd&) = delete;
};

TEST(Nonces, AreStillToBeHadWhileAThreadEnds) {
    std::set<Bytes> found;
    std::thread([&] {
        static thread_local AtThreadEnd end;
        end.found = &found;
        nonces(1);
    }).join();
    EXPECT_EQ(found.size(), 100U);
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
    const auto shown = [](auto decode, const std::string& encoded) {
        std::optional<std::string> hex;
        const std::string sentence = failureOf([&] { return hex = hexString(decode(encoded)); });
        EXPECT_EQ(sentence, hex ? "" : invalidEncoding);
        return hex ? Value(*hex) : Value(nullptr);
    };
    for (const auto& v : rows("cases/base64")) {
        const std::string encoded = text(v, "text");
        EXPECT_EQ(shown(B64::decode, encoded), v.at("standard")) << encoded;
        EXPECT_EQ(shown(B64::decodeURL, encoded), v.at("url")) << encoded;
        EXPECT_EQ(shown(B64::decodeSecretURL, encoded), v.at("url")) << encoded;
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
        EXPECT_EQ(failureOf([&] { return Hex::decode(bad); }), invalidEncoding) << bad;
    }
}

} // namespace
} // namespace KRCrypto::Tests
