#include "KRCrypto/AccountKeys.hpp"
#include "KRCrypto/MasterKey.hpp"
#include "KRCrypto/RecoveryCode.hpp"
#include "KRCrypto/ServerKDFError.hpp"
#include "tests/KRCrypto/Vectors.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

namespace KRCrypto::Tests {
namespace {

SecretBytes secret(const boost::json::value& record, std::string_view key) {
    return SecretBytes::copyOf(bytes(record, key));
}

Argon2Params paramsOf(const boost::json::value& v) {
    return {number(v, "memoryKib"), number(v, "iterations"), number(v, "parallelism"),
            number(v, "outputLength")};
}

TEST(AccountKeys, HierarchyMatchesTheGoldenAccount) {
    const auto v = vectors("golden/account");
    const PasswordKeys keys =
        deriveFromPassword(text(v, "password"), bytes(v, "kdfSalt"), paramsOf(v.at("params")));
    EXPECT_EQ(keys, (PasswordKeys{secret(v, "kek"), secret(v, "authKey")}));
    EXPECT_EQ(deriveRecoveryKeys(bytes(v, "recoverySecret")),
              (RecoveryKeys{secret(v, "rk"), secret(v, "rkAuth")}));
    EXPECT_EQ(formatRecoveryCode(bytes(v, "recoverySecret")).text(), text(v, "recoveryCode"));
    EXPECT_EQ(parseRecoveryCode(text(v, "recoveryCode")), secret(v, "recoverySecret"));

    const MasterKey mk = MasterKey::fromBytes(bytes(v, "masterKey"));
    EXPECT_EQ(mk.blindKey(), secret(v, "blindKey"));
    EXPECT_EQ(mk.dedupeKey(), secret(v, "dedupeKey"));
    EXPECT_EQ(mk.appDataKey(), secret(v, "appDataKey"));
    EXPECT_EQ(mk.quickSendKey(), secret(v, "quickSendKey"));
    EXPECT_EQ(MasterKey::unwrapWithKek(keys.kek, bytes(v, "wrappedMasterKey")), mk);
    EXPECT_EQ(MasterKey::unwrapWithRecovery(secret(v, "rk"), bytes(v, "wrappedMasterKeyRecovery")), mk);
}

TEST(AccountKeys, Argon2MatchesThePublishedVector) {
    for (const auto& v : rows("published/argon2id")) {
        EXPECT_EQ(argon2idRaw(bytes(v, "password"), bytes(v, "salt"), bytes(v, "secret"),
                              bytes(v, "associatedData"), paramsOf(v)),
                  secret(v, "tag"));
    }
}

TEST(AccountKeys, Argon2SpeaksWithTheLibrarysCodes) {
    const Bytes salt(16);
    const Argon2Params fine{64, 1, 1, 32};
    constexpr std::int64_t huge = std::numeric_limits<std::int64_t>::max();

    const struct {
        Argon2Params params;
        Bytes salt;
        std::string_view start;
        bool untrusted; // beyond 32 bits or the ceilings: refused before the library sees it
    } table[] = {
        {{7, 1, 1, 32}, salt, "Argon2 error -14: ", false},
        {{64, 0, 1, 32}, salt, "Argon2 error -12: ", false},
        {{64, 1, 0, 32}, salt, "Argon2 error -16: ", false},
        {{64, 1, 1, 3}, salt, "Argon2 error -2: ", false},
        {{64, 1, 1, 0}, salt, "Argon2 error -2: ", false},
        {fine, Bytes(7), "Argon2 error -6: ", false},
        {fine, {}, "Argon2 error -6: ", false},
        {{4194305, 1, 1, 32}, salt, "Argon2 error -15: ", true},
        {{64, 65, 1, 32}, salt, "Argon2 error -13: ", true},
        {{64, 1, 65, 32}, salt, "Argon2 error -17: ", true},
        {{64, 1, 1, 33}, salt, "Argon2 error -3: ", true},
        {{huge, 1, 1, 32}, salt, "Argon2 error -15: ", true},
        {{-1, 1, 1, 32}, salt, "Argon2 error -14: ", true},
        {{64, -1, 1, 32}, salt, "Argon2 error -12: ", true},
        {{64, 1, -1, 32}, salt, "Argon2 error -16: ", true},
        {{64, 1, 1, -1}, salt, "Argon2 error -2: ", true},
    };

    for (const auto& row : table) {
        const std::string sentence = failureOf([&] { return argon2idUntrusted("p", row.salt, row.params); });
        EXPECT_TRUE(sentence.starts_with(row.start) && sentence.size() > row.start.size()) << sentence;
        if (!row.untrusted) {
            EXPECT_EQ(failureOf([&] { return argon2id("p", row.salt, row.params); }), sentence);
        }
    }
    EXPECT_EQ(failureOf([&] { return argon2id("", salt, fine); }), "");
    EXPECT_DEATH(argon2id("p", salt, {std::int64_t{1} << 32, 1, 1, 32}), "does not fit in 32 bits");
    EXPECT_DEATH(argon2id("p", salt, {64, -1, 1, 32}), "does not fit in 32 bits");
}

TEST(ServerParameters, AreAcceptedBetweenFloorAndCeilingOnly) {
    const std::pair<Argon2Params, bool> table[] = {
        {{}, true},
        {{4194304, 64, 64, 32}, true},
        {{65535, 3, 1, 32}, false},
        {{4194305, 3, 1, 32}, false},
        {{65536, 2, 1, 32}, false},
        {{65536, 65, 1, 32}, false},
        {{65536, 3, 0, 32}, false},
        {{65536, 3, 65, 32}, false},
        {{65536, 3, 1, 31}, false},
        {{65536, 3, 1, 64}, false},
        {{-1, -1, -1, -1}, false},
        {{std::numeric_limits<std::int64_t>::max(), 3, 1, 32}, false},
    };
    for (const auto& [params, accepted] : table) {
        std::string sentence;
        try {
            requireSafeServerParams(params);
        } catch (const ServerKDFError& error) {
            sentence = error.what();
        }
        EXPECT_EQ(sentence,
                  accepted ? ""
                           : "The server asked for unsafe password settings, so nothing was sent. Please "
                             "contact support@korvane.app.");
    }
}

TEST(RecoveryCode, FormatsBase32InGroups) {
    for (const auto& v : rows("published/base32")) {
        std::string code(formatRecoveryCode(asBytes(text(v, "text"))).text());
        std::erase(code, '-');
        EXPECT_EQ(code, text(v, "base32"));
    }
    std::string zeros;
    for (int group = 0; group < 13; ++group) {
        zeros += group == 0 ? "AAAA" : "-AAAA";
    }
    EXPECT_EQ(formatRecoveryCode(Bytes(32)).text(), zeros);
}

TEST(RecoveryCode, ParsesWhatPeopleTypeAndRefusesTheRest) {
    const auto v = vectors("golden/account");
    const std::string code = text(v, "recoveryCode");
    std::string lower = code;
    std::ranges::transform(lower, lower.begin(),
                           [](char c) { return c == '-' ? ' ' : static_cast<char>(std::tolower(c)); });
    std::string plain = code;
    std::erase(plain, '-');
    for (const std::string& fine : {lower, plain, "\u2003\n" + code + "--\u00a0\t"}) {
        EXPECT_EQ(parseRecoveryCode(fine), secret(v, "recoverySecret"));
    }

    const std::string start(51, 'A');
    std::string withNul = start + 'A';
    withNul[20] = '\0';
    for (const std::string& bad :
         {std::string(), start, start + "B", start + "AA", start + "0", start + "1", start + "8", start + "9",
          start + "=", withNul, start + "\xff", start + "ſ", start + "Á", std::string(100000, 'A')}) {
        EXPECT_EQ(failureOf([&] { return parseRecoveryCode(bad); }), "Invalid recovery code");
    }
}

TEST(MasterKey, WrapsAreBoundToTheirPurpose) {
    const MasterKey mk = MasterKey::generate();
    const Bytes key(32, 7);
    const Bytes wrapped = mk.wrapWithKek(key);
    const Bytes recovery = mk.wrapWithRecovery(key);
    EXPECT_EQ(wrapped.size(), 61U);
    EXPECT_EQ(MasterKey::unwrapWithKek(key, wrapped), mk);
    EXPECT_EQ(MasterKey::unwrapWithRecovery(key, recovery), mk);
    EXPECT_EQ(failureOf([&] { return MasterKey::unwrapWithRecovery(key, wrapped); }), authenticationFailed);
    EXPECT_EQ(failureOf([&] { return MasterKey::unwrapWithKek(key, recovery); }), authenticationFailed);
    EXPECT_EQ(firstUnnoticedFlip(wrapped, [&](ByteView b) { return MasterKey::unwrapWithKek(key, b); }), "");
    EXPECT_FALSE(mk == MasterKey::generate());
    for (const std::size_t size : {0U, 31U, 33U}) {
        EXPECT_EQ(failureOf([&] { return MasterKey::fromBytes(Bytes(size)); }),
                  "Invalid key length " + std::to_string(size));
    }
}

} // namespace
} // namespace KRCrypto::Tests
