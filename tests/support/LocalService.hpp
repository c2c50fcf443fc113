#pragma once

#include "KorvaneCore/api/APIClient.hpp"
#include "KorvaneCore/keychain/FileKeychain.hpp"
#include "KorvaneService/Service.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/VirtualClock.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>

#include <memory>
#include <optional>
#include <string>

namespace Korvane::Testing {

/// A service of the test's own, in this process, on a free port and in virtual time.
class LocalService {
public:
    explicit LocalService(const std::function<void(ServiceSettings&)>& adjust = {});

    /// Ends it and starts it again on the same data.
    void restart();

    [[nodiscard]] Service& operator*() { return *service_; }

    Service* operator->() { return &*service_; }

    [[nodiscard]] const std::filesystem::path& folder() const { return folder_.path(); }

    /// The container of this process and of the programs it starts.
    [[nodiscard]] std::filesystem::path container() const { return container_.path(); }

    [[nodiscard]] KRConfiguration configuration() const;

    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();

private:
    TemporaryContainer container_; // with locks of the test's own: other tests run beside it
    TemporaryFolder folder_;
    ServiceSettings settings_;
    std::optional<Service> service_;
};

/// A device of a user of that service, with keys made up where the service does not look into them.
class TestDevice {
public:
    /// `session` stands in for the network.
    explicit TestDevice(const LocalService& service, std::shared_ptr<HTTPSession> session = nullptr);

    /// Runs a call to its end, for its result or what it throws.
    template <class T>
    T run(asio::awaitable<T> call) {
        std::optional<T> result;
        std::exception_ptr error;
        asio::co_spawn(context_, std::move(call), [&](std::exception_ptr thrown, T value) {
            error = std::move(thrown);
            result = std::move(value);
        });
        finish(error);
        return std::move(*result);
    }

    void run(asio::awaitable<void> call);

    /// The sentence a call fails with; empty when it does not.
    template <class T>
    std::string failure(asio::awaitable<T> call) {
        try {
            run(std::move(call));
        } catch (const std::exception& error) {
            return error.what();
        }
        return "";
    }

    /// A new account with this device signed in to it.
    AuthResponse signUp(const std::string& email);

    /// This device, signed in to an account made by signUp().
    AuthResponse signIn(const std::string& email);

    /// A file of these sealed bytes, uploaded in parts of `partSize`.
    RemoteFile upload(const std::string& folderId, const std::string& name, const std::string& bytes,
                      std::size_t partSize, const std::string& blobId);

    [[nodiscard]] const std::shared_ptr<APIClient>& api() const { return api_; }

    [[nodiscard]] const std::shared_ptr<KeychainStore>& keychain() const { return keychain_; }

private:
    void finish(const std::exception_ptr& error);

    TemporaryFolder folder_;
    asio::io_context context_;
    std::shared_ptr<KeychainStore> keychain_;
    std::shared_ptr<APIClient> api_;
};

} // namespace Korvane::Testing
