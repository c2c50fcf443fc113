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

constexpr std::int64_t huge = std::numeric_limits<std::int64_t>::max();

TEST(AccountKeys, HierarchyMatchesTheGoldenAccount) {
    const auto v = vectors("golden/account");
    const PasswordKeys keys =
        deriveFromPassword(text(v, "password"), bytes(v, "kdfSalt"), paramsOf(v.at("params")));
    EXPECT_EQ(keys, (PasswordKeys{secret(v, "kek"), secret(v, "authKey")}));
    EXPECT_EQ(deriveRecoveryKeys(bytes(v, "recoverySecret")),
              (RecoveryKeys{secret(v, "rk"), secret(v, "rkAuth")}));

    const MasterKey mk = goldenKey();
    EXPECT_EQ(mk.blindKey(), secret(v, "blindKey"));
    EXPECT_EQ(mk.dedupeKey(), secret(v, "dedupeKey"));
    EXPECT_EQ(mk.appDataKey(), secret(v, "appDataKey"));
    EXPECT_EQ(mk.quickSendKey(), secret(v, "quickSendKey"));
    EXPECT_EQ(MasterKey::unwrapWithKek(keys.kek, bytes(v, "wrappedMasterKey")), mk);
    EXPECT_EQ(MasterKey::unwrapWithRecovery(secret(v, "rk"), bytes(v, "wrappedMasterKeyRecovery")), mk);
    EXPECT_FALSE(MasterKey::generate() == MasterKey::generate());
    for (const std::size_t size : {0U, 31U, 33U}) {
        EXPECT_EQ(failureOf([&] { return MasterKey::fromBytes(Bytes(size)); }),
                  "Invalid key length " + std::to_string(size));
    }
}

TEST(Argon2, MatchesThePublishedVector) {
    for (const auto& v : rows("published/argon2id")) {
        EXPECT_EQ(argon2idRaw(bytes(v, "password"), bytes(v, "salt"), bytes(v, "secret"),
                              bytes(v, "associatedData"), paramsOf(v)),
                  secret(v, "tag"));
    }
}

TEST(Argon2, LimitsSpeakWithTheLibrarysSentencesInItsOrder) {
    for (const auto& v : rows("cases/argon2-limits")) {
        const Bytes salt(static_cast<std::size_t>(number(v, "salt")));
        EXPECT_EQ(failureOf([&] { return argon2idUntrusted("p", salt, paramsOf(v)); }), text(v, "sentence"));
        if (flag(v, "library")) { // within 32 bits, the library itself says so
            EXPECT_EQ(failureOf([&] { return argon2id("p", salt, paramsOf(v)); }), text(v, "sentence"));
        }
    }
    EXPECT_EQ(argon2idUntrusted("", Bytes(8), {8, 1, 1, 4}).size(), 4U);
    EXPECT_DEATH(argon2id("p", Bytes(16), {std::int64_t{1} << 32, 1, 1, 32}), "does not fit in 32 bits");
    EXPECT_DEATH(argon2id("p", Bytes(16), {64, -1, 1, 32}), "does not fit in 32 bits");
}

TEST(ServerParameters, AreAcceptedBetweenFloorAndCeilingOnly) {
    for (const Argon2Params& fine : {Argon2Params{}, Argon2Params{4194304, 64, 64, 32}}) {
        EXPECT_NO_THROW(requireSafeServerParams(fine));
    }
    const Argon2Params refused[] = {
        {65535, 3, 1, 32},  {4194305, 3, 1, 32}, {65536, 2, 1, 32}, {65536, 65, 1, 32}, {65536, 3, 0, 32},
        {65536, 3, 65, 32}, {65536, 3, 1, 31},   {65536, 3, 1, 64}, {-1, -1, -1, -1},   {huge, 3, 1, 32}};
    for (const Argon2Params& params : refused) {
        try {
            requireSafeServerParams(params);
            ADD_FAILURE() << params.memoryKib << " " << params.iterations << " " << params.parallelism;
        } catch (const ServerKDFError& error) {
            EXPECT_STREQ(error.what(), "The server asked for unsafe password settings, so nothing was sent. "
                                       "Please contact support@korvane.app.");
        }
    }
}

TEST(RecoveryCode, IsBase32InGroups) {
    for (const auto& v : rows("published/base32")) {
        std::string code(formatRecoveryCode(asBytes(text(v, "text"))).text());
        std::erase(code, '-');
        EXPECT_EQ(code, text(v, "base32"));
    }
    const auto v = vectors("golden/account");
    EXPECT_EQ(formatRecoveryCode(bytes(v, "recoverySecret")).text(), text(v, "recoveryCode"));
}

TEST(RecoveryCode, ParsesWhatPeopleTypeAndRefusesTheRest) {
    const auto v = vectors("golden/account");
    const std::string code = text(v, "recoveryCode");
    std::string spaced = code;
    std::ranges::transform(spaced, spaced.begin(),
                           [](char c) { return c == '-' ? ' ' : static_cast<char>(std::tolower(c)); });
    std::string plain = code;
    std::erase(plain, '-');
    for (const std::string& fine : {code, spaced, plain, "\u2003\n" + code + "--\u00a0\t"}) {
        EXPECT_EQ(parseRecoveryCode(fine), secret(v, "recoverySecret"));
    }

    const std::string start(51, 'A');
    for (const std::string& bad :
         {std::string(), start, start + "B", start + "AA", start + "0", start + "1", start + "8", start + "9",
          start + "=", start + '\0', start + "\xff", start + "ſ", start + "Á", std::string(100000, 'A')}) {
        EXPECT_EQ(failureOf([&] { return parseRecoveryCode(bad); }), "Invalid recovery code");
    }
}

} // namespace
} // namespace KRCrypto::Tests
