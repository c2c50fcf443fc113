#pragma once

#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/api/BackgroundBlobTransport.hpp"
#include "KorvaneCore/background/MessageChannel.hpp"
#include "KorvaneCore/background/SessionFiles.hpp"
#include "KorvaneCore/config/SharedContainer.hpp"
#include "KorvaneCore/json/KRJSONRecords.hpp"
#include "KorvaneCore/platform/Files.hpp"
#include "KorvaneCore/platform/LocalSocket.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/LocalService.hpp"

#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_future.hpp>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <future>
#include <thread>

namespace Korvane::Testing {

inline const std::string putRoute = "PUT /storage/parts/{upload}/{part}";
inline const std::string getRoute = "GET /storage/blobs/{blob}";

/// What a client of the helper sees, message by message.
class HelperPeer {
public:
    explicit HelperPeer(const std::string& identifier)
        : channel_(std::make_shared<MessageChannel>(context_.get_executor(),
                                                    LocalSocket::connect(SessionFiles::socket(identifier)))) {
    }

    void send(const std::string& text) { channel_->send(text); }

    void send(const TransferMessages::FromClient& message) { send(KRJSON::write(message)); }

    /// The next message; none when the helper closes the connection.
    std::optional<TransferMessages::FromHelper> receive() {
        auto text = asio::co_spawn(context_, channel_->receive(), asio::use_future);
        context_.restart();
        context_.run_for(std::chrono::seconds(20));
        try {
            return KRJSON::read<TransferMessages::FromHelper>(text.get());
        } catch (const boost::system::system_error&) {
            return std::nullopt;
        }
    }

    TransferMessages::Welcome greet() {
        TransferMessages::FromClient message;
        message.hello = TransferMessages::Hello{};
        send(message);
        return receive().value().welcome.value();
    }

private:
    asio::io_context context_;
    std::shared_ptr<MessageChannel> channel_;
};

/// Waits for what other processes and threads bring about.
inline void waitUntil(const std::function<bool()>& reached) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!reached()) {
        if (std::chrono::steady_clock::now() > deadline)
            throw std::runtime_error("nothing happens");
        std::this_thread::yield();
    }
}

/// A container, a service and an upload of two parts under way. Ends the helpers its tests have started.
struct TransportFixture {
    static constexpr std::size_t partSize = 300'000;

    TransportFixture()
        : service([](ServiceSettings& settings) { settings.chunkSize = partSize - 16; }), device(service) {
        account = device.signUp("a@example.org");
        upload = device.run(device.api()->createUpload({"blob", 2 * partSize, 2}));
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    }

    ~TransportFixture() {
        if (const auto process = runningHelper())
            ::kill(static_cast<pid_t>(*process), SIGKILL);
    }

    TransportFixture(const TransportFixture&) = delete;
    TransportFixture& operator=(const TransportFixture&) = delete;

    [[nodiscard]] std::string partURL(std::size_t part) const { return upload.parts.value().at(part).url; }

    [[nodiscard]] KRCrypto::ByteView partBytes(std::size_t part) const {
        return KRCrypto::ByteView(bytes).subspan(part * partSize, partSize);
    }

    [[nodiscard]] bool isUploaded(std::size_t part) {
        return device.run(device.api()->uploadStatus(upload.uploadId.value()))
            .parts.at(part)
            .uploaded.value_or(false);
    }

    /// Completes the upload and gives the blob's URL.
    std::string complete() {
        CompleteUploadRequest request;
        request.folderId = account.user.rootFolderId;
        request.metaEnc = {1};
        request.nameBlindIndex = "name";
        request.wrappedFileKey = KRCrypto::Bytes(61, 7);
        const auto file = device.run(device.api()->completeUpload(upload.uploadId.value(), request));
        return device.run(device.api()->downloadInfo(file.id)).url;
    }

    [[nodiscard]] std::size_t stagedFiles() const {
        const std::filesystem::directory_iterator all(SharedContainer::cipherStaging());
        return static_cast<std::size_t>(std::distance(begin(all), end(all)));
    }

    /// The process of the helper that serves now. Throws FileError when there is none.
    [[nodiscard]] std::int64_t helper() const { return HelperPeer(identifier).greet().process; }

    /// None when no helper was started, or it has ended.
    [[nodiscard]] std::optional<std::int64_t> runningHelper() const {
        try {
            return helper();
        } catch (const std::exception&) {
            return std::nullopt;
        }
    }

    void killHelper() const { ASSERT_EQ(::kill(static_cast<pid_t>(helper()), SIGKILL), 0); }

    /// The API error a call fails with.
    template <class T>
    APIError failure(asio::awaitable<T> call) {
        try {
            if constexpr (std::is_void_v<T>)
                device.run(std::move(call));
            else
                (void)device.run(std::move(call));
        } catch (const std::exception& error) {
            if (const auto* known = apiError(error))
                return *known;
            throw;
        }
        throw std::runtime_error("no error");
    }

    const std::string identifier = "test.transfers";
    TemporaryContainer container;
    LocalService service;
    TestDevice device;
    AuthResponse account;
    CreateUploadResponse upload;
    KRCrypto::Bytes bytes = KRCrypto::Bytes(2 * partSize);
};

} // namespace Korvane::Testing
