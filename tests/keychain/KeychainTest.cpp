#include "KorvaneCore/config/KRConfiguration.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/keychain/FileKeychain.hpp"
#include "KorvaneCore/keychain/SecretServiceKeychain.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <thread>

namespace Korvane {
namespace {

using Key = KeychainStore::Key;
using Testing::ScopedEnvironment;

KRCrypto::SecretBytes secret(std::string_view text) {
    return KRCrypto::SecretBytes::copyOf(text);
}

/// Every store keeps this suite. Opening one again, as another process would, shows the same secrets.
class KeychainTest : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        if (isService() && std::getenv("KORVANE_TEST_KEYRING") == nullptr)
            GTEST_SKIP() << "needs a keyring of its own: run by the test keychain-service";
    }

    static bool isService() { return GetParam() == std::string("service"); }

    std::shared_ptr<KeychainStore> open(const std::string& container = "one") {
        if (isService())
            return std::make_shared<SecretServiceKeychain>("group", (folder_ / container).string());
        return std::make_shared<FileKeychain>(folder_ / (container + ".json"));
    }

    Testing::TemporaryFolder folder_;
};

TEST_P(KeychainTest, KeepsReplacesAndRemovesItems) {
    EXPECT_EQ(open()->read(Key::accessToken), std::nullopt);
    EXPECT_NO_THROW(open()->remove({Key::accessToken}));

    const auto binary = secret(std::string_view("\0\xff\n key", 7));
    open()->write(
        {{Key::accessToken, secret("a.b.c")}, {Key::masterKey, binary}, {Key::refreshToken, secret("")}});
    EXPECT_EQ(open()->read(Key::accessToken), secret("a.b.c"));
    EXPECT_EQ(open()->read(Key::masterKey), binary);
    EXPECT_EQ(open()->read(Key::refreshToken), secret(""));

    open()->write({{Key::accessToken, secret("d")}});
    open()->remove({Key::refreshToken});
    EXPECT_EQ(open()->read(Key::accessToken), secret("d"));
    EXPECT_EQ(open()->read(Key::refreshToken), std::nullopt);
    EXPECT_EQ(open()->read(Key::masterKey), binary) << "other items stay as they are";
    EXPECT_EQ(open("two")->read(Key::masterKey), std::nullopt) << "another container has its own";
    open()->remove({Key::accessToken, Key::masterKey});
}

TEST_P(KeychainTest, WritersAtOnceLoseNothing) {
    std::vector<std::thread> writers;
    for (const auto key : {Key::accessToken, Key::refreshToken, Key::masterKey})
        writers.emplace_back([key, store = open()] {
            for (int i = 0; i < 10; ++i)
                store->write({{key, secret(std::to_string(i))}});
        });
    for (auto& writer : writers)
        writer.join();
    for (const auto key : {Key::accessToken, Key::refreshToken, Key::masterKey})
        EXPECT_EQ(open()->read(key), secret("9"));
    open()->remove({Key::accessToken, Key::refreshToken, Key::masterKey});
}

INSTANTIATE_TEST_SUITE_P(Stores, KeychainTest, testing::Values("file", "service"),
                         [](const auto& info) { return std::string(info.param); });

TEST(FileKeychain, IsForItsOwnerAloneAndSurvivesDamageUntouched) {
    const Testing::TemporaryFolder folder;
    const auto file = folder / "keychain.json";
    FileKeychain keychain(file);
    keychain.write({{Key::accessToken, secret("t")}});
    struct stat status{};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600);

    Testing::writeFile(file, R"({"access-token":"dA==","master-)");
    EXPECT_THROW((void)keychain.read(Key::accessToken), KeychainError);
    EXPECT_THROW(keychain.write({{Key::accessToken, secret("u")}}), KeychainError);
    EXPECT_EQ(std::filesystem::file_size(file), 31U) << "nothing is written over what cannot be read";
}

/// Without a session bus secrets go to the file; once it is there, it is used with a bus as well.
TEST(SystemKeychain, TurnsToTheFileWhereThereIsNoBus) {
    const Testing::TemporaryContainer container;
    const ScopedEnvironment noBus("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
    const auto keychain = systemKeychain(KRConfiguration());
    EXPECT_EQ(keychain->read(Key::masterKey), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(container.path())) << "reading leaves no trace";
    keychain->write({{Key::masterKey, secret("k")}});
    EXPECT_EQ(FileKeychain(container.path() / "keychain.json").read(Key::masterKey), secret("k"));
    EXPECT_EQ(systemKeychain(KRConfiguration())->read(Key::masterKey), secret("k"));
}

TEST(SystemKeychain, UsesAKeyringThatWorksAndTheFileBesideOneThatDoesNot) {
    const auto* keyring = std::getenv("KORVANE_TEST_KEYRING");
    if (keyring == nullptr)
        GTEST_SKIP() << "needs a keyring of its own: run by the test keychain-service";
    const Testing::TemporaryContainer container;
    const auto keychain = systemKeychain(KRConfiguration());
    EXPECT_EQ(keychain->read(Key::accessToken), std::nullopt);
    EXPECT_NO_THROW(keychain->remove({Key::accessToken}));
    keychain->write({{Key::masterKey, secret("k")}});
    EXPECT_EQ(keychain->read(Key::masterKey), secret("k"));
    EXPECT_EQ(std::filesystem::exists(container.path() / "keychain.json"), keyring != std::string("working"));
    keychain->remove({Key::masterKey});
    EXPECT_EQ(keychain->read(Key::masterKey), std::nullopt);
}

} // namespace
} // namespace Korvane
