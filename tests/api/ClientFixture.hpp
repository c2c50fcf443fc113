#pragma once

#include "KRCrypto/B64.hpp"
#include "KorvaneCore/api/APIClient.hpp"
#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/keychain/FileKeychain.hpp"
#include "tests/support/TemporaryFolder.hpp"
#include "tests/support/VirtualClock.hpp"

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_future.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <future>
#include <map>
#include <set>

namespace Korvane::Testing {

/// Stands in for the network: answers by a function, and can keep callers waiting.
class ScriptedSession final : public HTTPSession {
public:
    struct Sent {
        std::string method;
        std::string url;
        std::map<std::string, std::string> headers;
        std::string body;
    };

    asio::awaitable<HTTPResponse> send(HTTPRequest request) override {
        Sent entry{request.method, request.url, {}, {}};
        for (const auto& [name, value] : request.headers)
            entry.headers[name] = value.text();
        if (request.body)
            entry.body = KRCrypto::asText(*request.body);
        sent.push_back(entry);
        if (holds && holds(entry)) {
            asio::steady_timer never(co_await asio::this_coro::executor,
                                     asio::steady_timer::time_point::max());
            held_.insert(&never);
            boost::system::error_code ended;
            co_await never.async_wait(asio::redirect_error(asio::use_awaitable, ended));
            held_.erase(&never);
            if ((co_await asio::this_coro::cancellation_state).cancelled() != asio::cancellation_type::none)
                throw boost::system::system_error(ended);
        }
        co_return answer(entry);
    }

    std::function<HTTPResponse(const Sent&)> answer;
    std::function<bool(const Sent&)> holds;
    std::vector<Sent> sent;

    [[nodiscard]] std::size_t held() const { return held_.size(); }

    /// Lets the answers come.
    void release() {
        holds = nullptr;
        for (auto* timer : held_)
            timer->cancel();
    }

private:
    std::set<asio::steady_timer*> held_;
};

inline HTTPResponse jsonAnswer(int status, std::string_view body) {
    return {status, {}, KRCrypto::Bytes(body.begin(), body.end())};
}

/// A client with a container of its own, a scripted network and virtual time. Everything of asio's runs in
/// the test's thread, while it waits for something.
class ClientFixture : public testing::Test {
protected:
    static KRConfiguration configuration() {
        KRConfiguration made;
        made.apiBaseURL = *KRConfiguration::parseBaseURL("https://api.test/base");
        return made;
    }

    /// A token that expires so many seconds from now.
    [[nodiscard]] std::string token(int seconds, const std::string& name) const {
        const auto expiry =
            std::chrono::duration_cast<std::chrono::seconds>(clock_->now().time_since_epoch()).count();
        const auto claims = R"({"exp":)" + std::to_string(expiry + seconds) + R"(,"sub":")" + name + "\"}";
        return "e30." + KRCrypto::base64URLString(KRCrypto::asBytes(claims)) + ".sig";
    }

    [[nodiscard]] static std::string pairBody(const std::string& access, const std::string& refresh) {
        return KRJSON::write(TokenPair{access, refresh});
    }

    void store(const std::string& access, const std::string& refresh) {
        keychain_->write({{KeychainStore::Key::accessToken, KRCrypto::SecretBytes::copyOf(access)},
                          {KeychainStore::Key::refreshToken, KRCrypto::SecretBytes::copyOf(refresh)}});
    }

    [[nodiscard]] std::string storedAccessToken() {
        const auto token = keychain_->read(KeychainStore::Key::accessToken);
        return token ? std::string(token->text()) : "";
    }

    void driveUntil(const std::function<bool()>& reached) {
        while (!reached())
            if (context_.run_one_for(std::chrono::seconds(20)) == 0)
                throw std::runtime_error("nothing happens");
    }

    template <class T>
    std::future<T> start(asio::awaitable<T> operation) {
        return asio::co_spawn(context_, std::move(operation), asio::use_future);
    }

    template <class T>
    T finish(std::future<T> future) {
        driveUntil([&] { return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
        return future.get();
    }

    template <class T>
    T get(asio::awaitable<T> operation) {
        return finish(start(std::move(operation)));
    }

    /// What the operation throws: its APIError, and in `info` whether it came as an APIErrorInfo.
    template <class T>
    APIError failure(std::future<T> future, bool* info = nullptr) {
        try {
            (void)finish(std::move(future));
        } catch (const std::exception& error) {
            if (info != nullptr)
                *info = dynamic_cast<const APIErrorInfo*>(&error) != nullptr;
            if (const auto* known = apiError(error))
                return *known;
            throw;
        }
        throw std::runtime_error("no error");
    }

    [[nodiscard]] std::size_t refreshes() const {
        return static_cast<std::size_t>(
            std::count_if(session_->sent.begin(), session_->sent.end(),
                          [](const auto& sent) { return sent.url.ends_with("/v1/auth/refresh"); }));
    }

    TemporaryContainer container_;
    TemporaryFolder folder_;
    std::shared_ptr<VirtualClock> clock_ = std::make_shared<VirtualClock>();
    std::shared_ptr<FileKeychain> keychain_ = std::make_shared<FileKeychain>(folder_ / "keychain.json");
    std::shared_ptr<ScriptedSession> session_ = std::make_shared<ScriptedSession>();
    asio::io_context context_;
    asio::executor_work_guard<asio::io_context::executor_type> work_ = asio::make_work_guard(context_);
    APIClient client_{context_.get_executor(), configuration(), keychain_, session_, clock_};
};

} // namespace Korvane::Testing
